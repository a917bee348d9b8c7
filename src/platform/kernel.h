// kernel.h - the kernel interface: the calls by which everything above reaches the system, and their numbers.
//
// Handles are unsigned 64-bit names of kernel objects; NO_OBJECT (all bits set) means that there is none and is what a
// failed call that gives a handle returns, its reason then being _SL_GetLastError()'s. The other calls return a result
// code, RESULT_SUCCESS or one of the RESULT_ codes, and leave their outputs untouched when they fail.
// Time-outs are signed milliseconds; WAIT_FOREVER (-1) never expires.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- handles and result codes ---------------------------------------------------------------------------------------

inline constexpr uint64_t NO_OBJECT = ~uint64_t{0};
inline constexpr uint64_t SYSTEM_WIDE = static_cast<uint64_t>(-2);  // parent of a walk over a list of the whole system
inline constexpr int64_t WAIT_FOREVER = -1;

enum : uint64_t {
    RESULT_SUCCESS = 0,
    RESULT_NO_OBJECT = 2,  // no such object, or one of another kind
    RESULT_NO_ITEM = 3,    // the object has no such item; also the end of a walk
    RESULT_BAD_ARGUMENT = 4,
    RESULT_NOT_PERMITTED = 5,
    RESULT_NO_MEMORY = 6,
    RESULT_TIMEOUT = 293,      // the time-out expired
    RESULT_INTERRUPTED = 310,  // the call was interrupted; the client library repeats it
};

// ---- flags ----------------------------------------------------------------------------------------------------------

enum : uint64_t {
    DELETE_HANDLE = 0,           // _SL_DeleteObject: this handle (or iterator) only
    DELETE_OBJECT = 0x80000000,  // _SL_DeleteObject: the object and all its handles
};

// Rights words of _SL_CreateHandle, by the use of the new handle.
enum : uint64_t {
    RIGHTS_REPLY = 0x40004,        // reply port of a command
    RIGHTS_QUERY_REPLY = 0x40024,  // temporary reply port of device queries and of closing
    RIGHTS_OPEN = 0xC0024,         // port used to look a device up or to open one, and a task's own handle
    RIGHTS_SHARED = 0x20,          // added by CreateSharedMsgPort
};

inline constexpr uint64_t ADDRESS_MEMO_ANY = 2;  // third argument of _SL_GetAddressMemo

// ---- state items (_SL_GetState) -------------------------------------------------------------------------------------

enum : uint64_t {
    KSTATE_CURRENT_THREAD = 1,
    KSTATE_CURRENT_TASK = 2,
    KSTATE_PAGE_SIZE = 8,  // bytes
    KSTATE_REGISTRY_PORT = 9,
    KSTATE_EXIT_NOTICE_PORT = 10,
    KSTATE_FREE_PAGES = 0xB,
    KSTATE_TOTAL_PAGES = 0xC,
    KSTATE_VIRT_FREE_PAGES = 0xD,
    KSTATE_VIRT_TOTAL_PAGES = 0xE,
    KSTATE_HANDLE_MANAGER = 0x14,  // nonzero: on, and a task sends a fresh handle to itself, not its own
    KSTATE_HANDLE_COUNT = 0x15,
    KSTATE_MAIN_CHUNK_PAGES = 0x16,
    KSTATE_MAIN_CHUNK_FREE_PAGES = 0x17,
    KSTATE_ISR_NUMBER_LIMIT = 0x19,
    KSTATE_RECLAIM_PAGES = 0x23,
    KSTATE_RECLAIM_USED_PAGES = 0x24,
    KSTATE_TICK = 0x64000005,  // milliseconds
};

// ---- iterator selections (_SL_BeginIterator) ------------------------------------------------------------------------

enum : uint64_t {
    ITERSEL_TASKS = 0x1100001,  // begun with SYSTEM_WIDE
    ITERSEL_MEMCHUNKS = 0x1100002,
    ITERSEL_VSPACES = 0x1100003,
    ITERSEL_MEMOS = 0x1101001,  // begun with a task's handle, as the ones below
    ITERSEL_THREADS = 0x1101002,
    ITERSEL_ISRS = 0x1101006,
    ITERSEL_VIEWS = 0x110100A,
};

// ---- information items (_SL_GetObjectInfo, _SL_GetIteratorInfo) -----------------------------------------------------
// _HI and _LO items are the halves of one 64-bit counter, 32 bits each.

enum : uint64_t {
    OBJINFO_STATE = 3,
    OBJINFO_OWNER = 4,
    OBJINFO_HANDLE = 6,  // the object's master handle

    TASKINFO_PRIORITY = 0x401,
    TASKINFO_RESERVED_PAGES = 0x403,
    TASKINFO_ALLOC_PAGES = 0x404,
    TASKINFO_VIRT_PAGES = 0x405,
    TASKINFO_EXETIME_HI = 0x406,
    TASKINFO_EXETIME_LO = 0x407,
    TASKINFO_FLAGS = 0x408,
    TASKINFO_HWID = 0x409,
    TASKINFO_THREADS = 0x40A,
    TASKINFO_MEMOS = 0x40B,
    TASKINFO_ISRTIME_HI = 0x40C,
    TASKINFO_ISRTIME_LO = 0x40D,
    TASKINFO_SLAB_U = 0x410,
    TASKINFO_SLAB_P = 0x411,
    TASKINFO_PAGEFAULTS_HI = 0x412,
    TASKINFO_PAGEFAULTS_LO = 0x413,
    TASKINFO_SYSTIME_LO = 0x419,
    TASKINFO_SYSTIME_HI = 0x41A,
    TASKINFO_SYSCALLS_LO = 0x41B,
    TASKINFO_SYSCALLS_HI = 0x41C,
    TASKINFO_CRTICK_LO = 0x423,
    TASKINFO_CRTICK_HI = 0x424,
    TASKINFO_VOLCTXSW_LO = 0x425,
    TASKINFO_VOLCTXSW_HI = 0x426,
    TASKINFO_INVCTXSW_LO = 0x427,
    TASKINFO_INVCTXSW_HI = 0x428,
    TASKINFO_GROUP = 0x841D,
    TASKINFO_IDS = 0x8420,  // group id in bits 16 to 31, user id in bits 0 to 15
    TASKINFO_PARENT = 0x8422,

    THREADINFO_PRIORITY = 0x301,
    THREADINFO_ERROR = 0x303,
    THREADINFO_PC = 0x30A,
    THREADINFO_EXETIME = 0x30B,
    THREADINFO_DEPTH = 0x30C,             // exception nesting
    THREADINFO_FETCHED_REGISTER = 0x30F,  // the value that CTRL_FETCH_REGISTER fetched, of the calling thread
    THREADINFO_STACKPTR = 0x310,
    THREADINFO_WAITON = 0x311,
    THREADINFO_WAITON_MASTER = 0x312,
    THREADINFO_VOLCTXSW_LO = 0x317,
    THREADINFO_VOLCTXSW_HI = 0x318,
    THREADINFO_INVCTXSW_LO = 0x319,
    THREADINFO_INVCTXSW_HI = 0x31A,

    ISRINFO_NUMBER = 0xD04,
    ISRINFO_PRIORITY = 0xD05,
    ISRINFO_SCHEDULED_HI = 0xD06,
    ISRINFO_SCHEDULED_LO = 0xD07,
    ISRINFO_SYSCALLS_HI = 0xD08,
    ISRINFO_SYSCALLS_LO = 0xD09,
    ISRINFO_PAGEFAULTS_HI = 0xD0A,
    ISRINFO_PAGEFAULTS_LO = 0xD0B,
    ISRINFO_ISRTIME_HI = 0xD0C,
    ISRINFO_ISRTIME_LO = 0xD0D,

    MEMINFO_BEGIN = 0x5001,
    MEMINFO_END = 0x5002,
    MEMINFO_BASE = 0x5003,
    MEMINFO_PAGES = 0x5004,
    MEMINFO_FLAGS = 0x5005,
    MEMINFO_FREE_PAGES = 0x5006,

    VSINFO_BEGIN = 0x5101,
    VSINFO_PAGES = 0x5102,
    VSINFO_TYPE = 0x5103,
    VSINFO_GLOBAL = 0x5104,

    MEMOINFO_SIZE = 257,
    MEMOINFO_ALLOC = 258,
    MEMOINFO_VIEWS = 259,
    MEMOINFO_COPIES = 260,
    MEMOINFO_DELETED = 261,
    MEMOINFO_HWADDR = 262,
    MEMOINFO_FIXADDR = 263,
    MEMOINFO_TYPE = 264,
    MEMOINFO_RECLAIM = 270,

    VIEWINFO_PAGES = 513,
    VIEWINFO_BEGIN = 514,
    VIEWINFO_OFFSET = 515,  // into its memo, in pages
    VIEWINFO_MEMO = 518,
    VIEWINFO_FLAGS = 521,
};

// Task states (OBJINFO_STATE of a task).
enum : uint64_t {
    TASKSTATE_RUNNING = 0,
    TASKSTATE_READY = 1,
    TASKSTATE_BLOCKED = 2,
    TASKSTATE_DELETED = 3,
    TASKSTATE_ZOMBIE = 4,
};

// Thread states (OBJINFO_STATE of a thread).
enum : uint64_t {
    THREADSTATE_RUNNING = 0,
    THREADSTATE_READY = 1,
    THREADSTATE_WAIT = 2,
    THREADSTATE_BLOCKED = 3,
    THREADSTATE_NOWHERE = 4,
};

// Bits of TASKINFO_FLAGS.
enum : uint64_t {
    TASKFLAG_SUPER = 0x100,
    TASKFLAG_SID_AT_CREATE = 0x200,
    TASKFLAG_KERNEL = 0x400,
    TASKFLAG_IDLE = 0x800,
    TASKFLAG_PGID_SEALED = 0x1000000,
};

// Bits of MEMINFO_FLAGS; what remains after them is the chunk's type.
enum : uint64_t {
    MEMFLAG_AVAILABLE = 0x10000,
    MEMFLAG_DESC_AT_END = 0x20000,
    MEMFLAG_DESC_IN_MAIN = 0x40000,
    MEMFLAG_NOT_ALLOCATABLE = 0x80000,
    MEMFLAG_KERNEL = 0x10000000,
    MEMFLAG_USER = 0x20000000,
    MEMFLAG_MAIN = 0x40000000,
};

// Bits of MEMOINFO_TYPE and of MEMOINFO_RECLAIM.
enum : uint64_t {
    MEMO_HW = 0x10000,
    MEMO_FIX = 0x20000,
    MEMORECLAIM_RECLAIMABLE = 1,
    MEMORECLAIM_LOCKED = 2,
    MEMORECLAIM_RECLAIMED = 4,
};

// Bits of VIEWINFO_FLAGS. The DENY bits take a permission away, the others grant a property.
enum : uint64_t {
    VIEWFLAG_DENY_READ = 0x100,
    VIEWFLAG_DENY_WRITE = 0x200,
    VIEWFLAG_DENY_EXECUTE = 0x400,
    VIEWFLAG_WRITE_THROUGH = 0x1000,
    VIEWFLAG_CACHE_INHIBITED = 0x2000,
    VIEWFLAG_COHERENT = 0x4000,
    VIEWFLAG_GUARDED = 0x8000,
    VIEWFLAG_SHARED = 0x10000,
    VIEWFLAG_FORCED = 0x20000,
    VIEWFLAG_MAY_READ = 0x100000,
    VIEWFLAG_MAY_WRITE = 0x200000,
    VIEWFLAG_MAY_EXECUTE = 0x400000,
    VIEWFLAG_EXPLICIT_LIMITS = 0x800000,
    VIEWFLAG_MIXED_PAGES = 0x40000000,
};

// ---- control codes, exceptions --------------------------------------------------------------------------------------

enum : uint64_t {
    CTRL_SET_PROPERTY = 0x5001,    // of a task: property number, new value, 0, 0
    CTRL_FETCH_REGISTER = 0x5006,  // of a thread: register id, exception node, 0, size in bytes (at most 8)
    TASKPROP_PRIORITY = 1,
};

enum : uint64_t {
    EXC_USR1 = 1,
    EXC_USR2 = 2,
    EXC_USR3 = 3,
    EXC_USR4 = 4,
    EXC_SIGNAL = 8,  // its parameter is the signal
    EXC_DEBUGCONSOLE = 9,
    EXC_LIMIT = 16,  // exception ids are below
};

// ---- system data (_SL_GetSystemData: group, index) ------------------------------------------------------------------

enum : uint64_t {
    KSYSIDX_REGISTERINFO = 0x57002E00,  // group of the three below
    KSYSIDX_REGISTERINFO_COUNT = 1,
    KSYSIDX_REGISTERINFO_STRIDE = 2,          // items per register in the table
    KSYSIDX_REGISTERINFO_MAXNAMELEN = 3,      // bytes
    KSYSIDX_REGISTERINFO_TABLE = 0x57002E01,  // group; register i from item stride * i: id, type word, name pieces

    KSYSIDX_TRACE = 0x57001001,  // group of the four below
    KSYSIDX_TRACE_WORDS = 3,
    KSYSIDX_TRACE_BUFFERS = 4,
    KSYSIDX_TRACE_WORDS_PER_BUFFER = 5,
    KSYSIDX_TRACE_LARGEST_ENTRY = 7,         // words
    KSYSIDX_TRACE_RAW_WORDS = 0x57001002,    // group, by word index: raw dump and buffer headers
    KSYSIDX_TRACE_ENTRY_WORDS = 0x57001003,  // group, by word index: the walk over entries
};

// Bits of a register's type word; the low byte is its width.
enum : uint64_t {
    CPUREG_WIDTH = 0xFF,
    CPUREG_READABLE = 0x100,
    CPUREG_WRITABLE = 0x200,
};

// ---- the calls ------------------------------------------------------------------------------------------------------

// What a receive gives. Only the low 32 bits of the code are significant.
struct kernel_message {
    uint64_t word1;
    uint64_t code;
    uint64_t word2;
};
static_assert(offsetof(kernel_message, code) == 8);
static_assert(offsetof(kernel_message, word2) == 16);
static_assert(sizeof(kernel_message) == 24);

extern "C" {

// Message ports and handles. The arguments that are always 0 are reserved.
uint64_t _SL_CreateMsgPort(uint64_t reserved1, uint64_t reserved2);              // new port, or NO_OBJECT
uint64_t _SL_CreateHandle(uint64_t reserved, uint64_t object, uint64_t rights);  // new handle, or NO_OBJECT
uint64_t _SL_DeleteObject(uint64_t handle, uint64_t flags);                      // DELETE_ flags
uint64_t _SL_SendMsg(uint64_t port, uint64_t word1, uint64_t code, uint64_t word2, int64_t timeout);
uint64_t _SL_RecvMsg(uint64_t port, uint64_t *word1, uint64_t *code, uint64_t *word2, int64_t timeout);
uint64_t _SL_RecvMsgPtr(uint64_t port, kernel_message *record, int64_t timeout);

// Synchronisation, time and state.
uint64_t _SL_WaitSemaphore(uint64_t semaphore, int64_t count, int64_t timeout);
uint64_t _SL_SignalSemaphore(uint64_t semaphore, int64_t count);
uint64_t _SL_Delay(uint64_t ticks);    // milliseconds
uint64_t _SL_GetState(uint64_t item);  // KSTATE_ item; its value

// Objects. _SL_GetObjectInfo reads one OBJINFO_ ... item of any object.
uint64_t _SL_GetObjectInfo(uint64_t handle, uint64_t item, uint64_t *value);
uint64_t _SL_GetAddressMemo(uint64_t reserved, uint64_t address, uint64_t kind);  // memo at address, or NO_OBJECT
uint64_t _SL_ControlObject(uint64_t handle, uint64_t control, uint64_t a, uint64_t b, uint64_t c, uint64_t d);  // CTRL_
uint64_t _SL_RaiseException(uint64_t task, uint64_t reserved1, uint64_t exception, uint64_t parameter,
                            uint64_t reserved2);
uint64_t _SL_GetSystemData(uint64_t group, uint64_t index, uint64_t *value);  // KSYSIDX_
uint64_t _SL_GetLastError();  // result code of the calling thread's last failed call

// Iterators: create, begin, then step onto each object in turn (the first step lands on the first one) and read items
// of the object stood on; delete when done. A begun iterator may be begun again.
uint64_t _SL_CreateIterator(uint64_t reserved1, uint64_t reserved2);            // new iterator, or NO_OBJECT
uint64_t _SL_BeginIterator(uint64_t iterator, uint64_t parent, uint64_t kind);  // ITERSEL_
uint64_t _SL_StepIterator(uint64_t iterator);
uint64_t _SL_GetIteratorInfo(uint64_t iterator, uint64_t item, uint64_t *value);

// Used by a run-time library only (start-up, memory, threads, signals), by no command.
uint64_t _SL_CreateSemaphore(uint64_t reserved, int64_t count);  // new semaphore, or NO_OBJECT
uint64_t _SL_CreateMemo(uint64_t reserved, uint64_t size, uint64_t kind);
uint64_t _SL_AllocView(uint64_t task, uint64_t memo, uint64_t address, uint64_t offset, uint64_t pages, uint64_t flags);
uint64_t _SL_VirtualFree(uint64_t task, uint64_t address, uint64_t pages);
uint64_t _SL_CreateStore(uint64_t reserved, uint64_t size);
uint64_t _SL_GetStore(uint64_t store, uint64_t index, uint64_t *value);
uint64_t _SL_CreateWatchObject(uint64_t reserved, uint64_t object);
uint64_t _SL_CreateEvent(uint64_t reserved, uint64_t flags);
uint64_t _SL_SetEvent(uint64_t event);
uint64_t _SL_ResetEvent(uint64_t event);
uint64_t _SL_WaitForEventPtr(uint64_t event, kernel_message *record, int64_t timeout);
uint64_t _SL_SetExceptionHandler(uint64_t thread, uint64_t handler, uint64_t argument);
uint64_t _SL_RetException(uint64_t thread, uint64_t node);
uint64_t _SL_SetState(uint64_t item, uint64_t value);

}  // extern "C"
