// A kernel library that refuses every call. It stands in for the real system's where it is to be seen that the toolbox
// needs these calls of the platform and nothing else.
#include "platform/kernel.h"

uint64_t _SL_CreateMsgPort(uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_CreateHandle(uint64_t, uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_DeleteObject(uint64_t, uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_SendMsg(uint64_t, uint64_t, uint64_t, uint64_t, int64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_RecvMsg(uint64_t, uint64_t *, uint64_t *, uint64_t *, int64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_RecvMsgPtr(uint64_t, kernel_message *, int64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_WaitSemaphore(uint64_t, int64_t, int64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_SignalSemaphore(uint64_t, int64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_Delay(uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_GetState(uint64_t) { return 0; }
uint64_t _SL_GetObjectInfo(uint64_t, uint64_t, uint64_t *) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_GetAddressMemo(uint64_t, uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_ControlObject(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_RaiseException(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_GetSystemData(uint64_t, uint64_t, uint64_t *) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_GetLastError() { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_CreateIterator(uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_BeginIterator(uint64_t, uint64_t, uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_StepIterator(uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_GetIteratorInfo(uint64_t, uint64_t, uint64_t *) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_CreateSemaphore(uint64_t, int64_t) { return NO_OBJECT; }
uint64_t _SL_CreateMemo(uint64_t, uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_AllocView(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_VirtualFree(uint64_t, uint64_t, uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_CreateStore(uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_GetStore(uint64_t, uint64_t, uint64_t *) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_CreateWatchObject(uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_CreateEvent(uint64_t, uint64_t) { return NO_OBJECT; }
uint64_t _SL_SetEvent(uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_ResetEvent(uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_WaitForEventPtr(uint64_t, kernel_message *, int64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_SetExceptionHandler(uint64_t, uint64_t, uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_RetException(uint64_t, uint64_t) { return RESULT_BAD_ARGUMENT; }
uint64_t _SL_SetState(uint64_t, uint64_t) { return RESULT_BAD_ARGUMENT; }
