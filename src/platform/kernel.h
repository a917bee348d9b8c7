// platform/kernel.h - the kernel interface: the calls by which everything above reaches the system, and their numbers.
//
// Handle: an unsigned 64-bit name of a kernel object. An object may have several; the master handle is the one that the
// system lists it under. Handles of one task mean the same in every task. NO_OBJECT (all bits set) names nothing; where
// a call's port is optional, 0 names nothing too.
//
// Port: a queue of messages with one receiver. Whoever holds a handle to a port may send to it; a client passes a
// server a handle to its own port for the answer. Message: two 64-bit words with a 32-bit code between them. It carries
// no sender: the reply port is one of its words.
//
// Iterator: walks a list of the kernel, one object at a time. A begin chooses the list and leaves the iterator before
// its first object, a step moves it onto the next one, and items are read from the object that it is on. Objects may
// appear and vanish during a walk.
//
// Memo: a piece of memory as the kernel keeps it. View: a memo mapped into a task's address space.
//
// Time-out: signed milliseconds. WAIT_FOREVER (-1) never expires; 0 does not wait.
//
// Results: a call that makes something returns its handle, or NO_OBJECT with the reason in _SL_GetLastError(). Every
// other call returns RESULT_SUCCESS or the RESULT_ code of its failure, which _SL_GetLastError() returns too.
// _SL_GetState and _SL_GetLastError return a value and cannot fail. A call that fails changes nothing and leaves its
// outputs untouched. Any call may fail with a code that is not named here: show it, do not interpret it. No call
// prints.
//
// Ownership: what a task makes (ports, handles, iterators, semaphores) is its own until it deletes it, and the kernel
// deletes the rest when the task ends. Deleting an object invalidates all its handles, whoever holds them. Pointers
// passed to a call are used during the call only.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- handles and result codes ---------------------------------------------------------------------------------------

inline constexpr uint64_t NO_OBJECT = ~uint64_t{0};
inline constexpr uint64_t SYSTEM_WIDE = static_cast<uint64_t>(-2);  // parent of a walk over a list of the system
inline constexpr int64_t WAIT_FOREVER = -1;

enum : uint64_t {
    RESULT_SUCCESS = 0,
    RESULT_NO_OBJECT = 2,  // no such object, or one of another kind
    RESULT_NO_ITEM = 3,    // the object has no such item; also the end of a walk
    RESULT_BAD_ARGUMENT = 4,
    RESULT_NOT_PERMITTED = 5,
    RESULT_NO_MEMORY = 6,
    RESULT_TIMEOUT = 293,      // the time-out expired
    RESULT_INTERRUPTED = 310,  // the call was interrupted and did nothing; the client library repeats it
};

// ---- flags ----------------------------------------------------------------------------------------------------------

// Flags of _SL_DeleteObject.
enum : uint64_t {
    DELETE_HANDLE = 0,           // this handle or iterator only; the object goes with its last handle
    DELETE_OBJECT = 0x80000000,  // the object and all its handles
};

// Rights words of _SL_CreateHandle, by the use of the new handle.
enum : uint64_t {
    RIGHTS_REPLY = 0x40004,        // reply port of a command
    RIGHTS_QUERY_REPLY = 0x40024,  // temporary reply port of device queries and of closing
    RIGHTS_OPEN = 0xC0024,         // reply port of a device look-up or open; a task's handle to itself
    RIGHTS_SHARED = 0x20,          // CreateSharedMsgPort adds it
};

inline constexpr uint64_t ADDRESS_MEMO_ANY = 2;  // third argument of _SL_GetAddressMemo

// ---- state items (_SL_GetState) -------------------------------------------------------------------------------------

enum : uint64_t {
    KSTATE_CURRENT_THREAD = 1,     // handle of the caller's
    KSTATE_CURRENT_TASK = 2,       // likewise
    KSTATE_PAGE_SIZE = 8,          // bytes
    KSTATE_REGISTRY_PORT = 9,      // of the device REGISTRY_DEVICE
    KSTATE_EXIT_NOTICE_PORT = 10,  // receives the ends of tasks, as protocol/task.h says
    KSTATE_FREE_PAGES = 0xB,
    KSTATE_TOTAL_PAGES = 0xC,
    KSTATE_VIRT_FREE_PAGES = 0xD,
    KSTATE_VIRT_TOTAL_PAGES = 0xE,
    KSTATE_HANDLE_MANAGER = 0x14,  // nonzero: on; a task that opens a device sends a new handle to itself
    KSTATE_HANDLE_COUNT = 0x15,
    KSTATE_MAIN_CHUNK_PAGES = 0x16,
    KSTATE_MAIN_CHUNK_FREE_PAGES = 0x17,
    KSTATE_ISR_NUMBER_LIMIT = 0x19,  // interrupt numbers are below it
    KSTATE_RECLAIM_PAGES = 0x23,
    KSTATE_RECLAIM_USED_PAGES = 0x24,  // the part of them in use
    KSTATE_TICK = 0x64000005,          // milliseconds since the system started
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
// PAGES items count pages of KSTATE_PAGE_SIZE bytes, TIME items milliseconds. A counter in two items has its high and
// low 32 bits in _HI and _LO; the two are not read at one moment.

enum : uint64_t {
    OBJINFO_STATE = 3,   // TASKSTATE_ or THREADSTATE_
    OBJINFO_OWNER = 4,   // handle of the task that owns it
    OBJINFO_HANDLE = 6,  // the object's master handle

    TASKINFO_PRIORITY = 0x401,
    TASKINFO_RESERVED_PAGES = 0x403,
    TASKINFO_ALLOC_PAGES = 0x404,
    TASKINFO_VIRT_PAGES = 0x405,
    TASKINFO_EXETIME_HI = 0x406,
    TASKINFO_EXETIME_LO = 0x407,
    TASKINFO_FLAGS = 0x408,  // TASKFLAG_
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
    TASKINFO_CRTICK_LO = 0x423,  // the tick when it was created
    TASKINFO_CRTICK_HI = 0x424,
    TASKINFO_VOLCTXSW_LO = 0x425,
    TASKINFO_VOLCTXSW_HI = 0x426,
    TASKINFO_INVCTXSW_LO = 0x427,
    TASKINFO_INVCTXSW_HI = 0x428,
    TASKINFO_GROUP = 0x841D,
    TASKINFO_IDS = 0x8420,     // group id in bits 16 to 31, user id in bits 0 to 15
    TASKINFO_PARENT = 0x8422,  // handle, as the group

    THREADINFO_PRIORITY = 0x301,
    THREADINFO_ERROR = 0x303,  // result code of its last failed call
    THREADINFO_PC = 0x30A,
    THREADINFO_EXETIME = 0x30B,
    THREADINFO_DEPTH = 0x30C,             // exception nesting
    THREADINFO_FETCHED_REGISTER = 0x30F,  // of the calling thread: what CTRL_FETCH_REGISTER fetched
    THREADINFO_STACKPTR = 0x310,
    THREADINFO_WAITON = 0x311,         // the handle that it waits on, as it was given
    THREADINFO_WAITON_MASTER = 0x312,  // that object's master handle
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

    MEMINFO_BEGIN = 0x5001,  // addresses
    MEMINFO_END = 0x5002,
    MEMINFO_BASE = 0x5003,
    MEMINFO_PAGES = 0x5004,
    MEMINFO_FLAGS = 0x5005,  // MEMFLAG_ and a type
    MEMINFO_FREE_PAGES = 0x5006,

    VSINFO_BEGIN = 0x5101,  // address
    VSINFO_PAGES = 0x5102,
    VSINFO_TYPE = 0x5103,
    VSINFO_GLOBAL = 0x5104,  // nonzero: one space for all tasks

    MEMOINFO_SIZE = 257,
    MEMOINFO_ALLOC = 258,
    MEMOINFO_VIEWS = 259,
    MEMOINFO_COPIES = 260,
    MEMOINFO_DELETED = 261,  // nonzero: deleted while views of it are left
    MEMOINFO_HWADDR = 262,   // with MEMO_HW
    MEMOINFO_FIXADDR = 263,  // with MEMO_FIX
    MEMOINFO_TYPE = 264,     // MEMO_ bits
    MEMOINFO_RECLAIM = 270,  // MEMORECLAIM_ bits

    VIEWINFO_PAGES = 513,
    VIEWINFO_BEGIN = 514,   // address
    VIEWINFO_OFFSET = 515,  // into its memo, in pages
    VIEWINFO_MEMO = 518,    // handle
    VIEWINFO_FLAGS = 521,   // VIEWFLAG_
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
    // Sets a property of a task: a the TASKPROP_, b the value.
    CTRL_SET_PROPERTY = 0x5001,
    TASKPROP_PRIORITY = 1,

    // Fetches a register of a thread into THREADINFO_FETCHED_REGISTER of the calling thread: a the register's id, b the
    // exception node (0: the thread itself), d the size in bytes, at most 8.
    CTRL_FETCH_REGISTER = 0x5006,
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

struct kernel_message {
    uint64_t word1;
    uint64_t code;  // the low 32 bits count
    uint64_t word2;
};
static_assert(offsetof(kernel_message, code) == 8);
static_assert(offsetof(kernel_message, word2) == 16);
static_assert(sizeof(kernel_message) == 24);

extern "C" {

// Arguments called reserved are 0.

// ---- ports, handles and messages ----

// Makes a message port that the calling task receives from.
//   returns  its handle, or NO_OBJECT
uint64_t _SL_CreateMsgPort(uint64_t reserved1, uint64_t reserved2);

// Makes another handle to an object.
//   object   any handle of it
//   rights   RIGHTS_ word: what the handle's holder may do
//   returns  the handle, or NO_OBJECT (RESULT_NO_OBJECT: object names nothing)
uint64_t _SL_CreateHandle(uint64_t reserved, uint64_t object, uint64_t rights);

// Deletes a handle, or an object with all its handles. A thread that waits on a deleted object fails with
// RESULT_NO_OBJECT. The calling task may delete itself; the call does not return then.
//   handle   of a port, handle, iterator or semaphore of the caller's, or of a task
//   flags    DELETE_HANDLE or DELETE_OBJECT
//   returns  RESULT_NO_OBJECT: handle names nothing; RESULT_NOT_PERMITTED: not the caller's to delete;
//            RESULT_TIMEOUT: the task has not ended in time
uint64_t _SL_DeleteObject(uint64_t handle, uint64_t flags);

// Queues a message at a port. Success means that it is queued, not that it was received.
//   port           any handle of it
//   word1, word2   passed on as they are
//   code           its low 32 bits are passed on
//   timeout        milliseconds to wait for room in the queue
//   returns        RESULT_NO_OBJECT: no such port; RESULT_TIMEOUT; RESULT_INTERRUPTED: not queued, send it again
uint64_t _SL_SendMsg(uint64_t port, uint64_t word1, uint64_t code, uint64_t word2, int64_t timeout);

// Removes the oldest message from the queue of a port of the calling task; waits for one where the queue is empty.
//   port                 any handle of it
//   word1, code, word2   out; each may be null
//   timeout              milliseconds
//   returns              RESULT_NO_OBJECT: no such port, or deleted during the wait; RESULT_TIMEOUT;
//                        RESULT_INTERRUPTED: no message was removed, receive again
uint64_t _SL_RecvMsg(uint64_t port, uint64_t *word1, uint64_t *code, uint64_t *word2, int64_t timeout);

// The same into one record.
//   record   out; null fails with RESULT_BAD_ARGUMENT
uint64_t _SL_RecvMsgPtr(uint64_t port, kernel_message *record, int64_t timeout);

// ---- synchronisation, time and state ----

// Waits until a semaphore's count is at least count, then subtracts count.
//   count    at least 0, else RESULT_BAD_ARGUMENT
//   timeout  milliseconds
//   returns  RESULT_NO_OBJECT: no such semaphore, or deleted during the wait; RESULT_TIMEOUT; RESULT_INTERRUPTED:
//            the count is unchanged, wait again
uint64_t _SL_WaitSemaphore(uint64_t semaphore, int64_t count, int64_t timeout);

// Adds count to a semaphore's count and wakes who waits for it.
//   returns  RESULT_NO_OBJECT: no such semaphore; RESULT_BAD_ARGUMENT: count is negative or the sum overflows
uint64_t _SL_SignalSemaphore(uint64_t semaphore, int64_t count);

// Sleeps for a number of milliseconds.
//   returns  RESULT_INTERRUPTED: woken early
uint64_t _SL_Delay(uint64_t ticks);

// Reads an item of the system's state, or of the calling task and thread.
//   item     KSTATE_
//   returns  its value; 0 for an item that the kernel does not have
uint64_t _SL_GetState(uint64_t item);

// ---- objects ----

// Reads one item of an object, without an iterator.
//   handle   any handle of it
//   item     OBJINFO_, or one of the object's own kind (TASKINFO_, THREADINFO_ ...)
//   value    out
//   returns  RESULT_NO_OBJECT: no such object; RESULT_NO_ITEM: it has no such item; RESULT_NOT_PERMITTED
uint64_t _SL_GetObjectInfo(uint64_t handle, uint64_t item, uint64_t *value);

// Finds the memo that is mapped at an address of the calling task.
//   address  need not be aligned
//   kind     ADDRESS_MEMO_ANY
//   returns  a handle of the memo, which stays the kernel's, or NO_OBJECT: nothing is mapped there
uint64_t _SL_GetAddressMemo(uint64_t reserved, uint64_t address, uint64_t kind);

// Performs a control operation on an object.
//   handle   of a task or thread
//   control  CTRL_, which says what a to d are
//   returns  RESULT_NO_OBJECT: no such object; RESULT_BAD_ARGUMENT: unknown control, or a value out of range;
//            RESULT_NO_ITEM: no such register or node; RESULT_NOT_PERMITTED
uint64_t _SL_ControlObject(uint64_t handle, uint64_t control, uint64_t a, uint64_t b, uint64_t c, uint64_t d);

// Raises an exception in a task. Success means that it was raised, not that the task has handled it.
//   exception   EXC_
//   parameter   the exception's own; for EXC_SIGNAL the signal
//   returns     RESULT_NO_OBJECT; RESULT_BAD_ARGUMENT: no such exception or signal; RESULT_NOT_PERMITTED
uint64_t _SL_RaiseException(uint64_t task, uint64_t reserved1, uint64_t exception, uint64_t parameter,
                            uint64_t reserved2);

// Reads one word of the kernel's own data.
//   group, index   KSYSIDX_
//   value          out
//   returns        RESULT_NO_ITEM: no such word; any other code where it cannot be read
uint64_t _SL_GetSystemData(uint64_t group, uint64_t index, uint64_t *value);

// The result code of the calling thread's last failed call; 0 where none has failed. A call that succeeds leaves it.
uint64_t _SL_GetLastError();

// ---- iterators ----

// Makes an iterator that is on no walk yet. Delete it with DELETE_HANDLE.
//   returns  its handle, or NO_OBJECT
uint64_t _SL_CreateIterator(uint64_t reserved1, uint64_t reserved2);

// Begins a walk, in place of the one that the iterator was on.
//   parent   SYSTEM_WIDE for a list of the system, or the handle of the task whose objects it walks
//   kind     ITERSEL_
//   returns  RESULT_NO_OBJECT: no such iterator or parent, or a parent that does not go with the kind;
//            RESULT_BAD_ARGUMENT: unknown kind; RESULT_NOT_PERMITTED
uint64_t _SL_BeginIterator(uint64_t iterator, uint64_t parent, uint64_t kind);

// Moves onto the next object; the first step moves onto the first one. Skips objects that have vanished.
//   returns  RESULT_NO_ITEM: the end, or not begun; RESULT_NO_OBJECT: no such iterator; other codes end the walk too
uint64_t _SL_StepIterator(uint64_t iterator);

// Reads one item of the object that an iterator is on.
//   item     OBJINFO_, or one of the kind that is walked (MEMOINFO_, VIEWINFO_ ...)
//   value    out
//   returns  RESULT_NO_ITEM: no such item, or on no object; RESULT_NO_OBJECT; RESULT_NOT_PERMITTED
uint64_t _SL_GetIteratorInfo(uint64_t iterator, uint64_t item, uint64_t *value);

// ---- used by a run-time library only (start-up, memory, threads, signals), by no command ----

// Makes a semaphore.
//   count    its first count, at least 0
//   returns  its handle, or NO_OBJECT
uint64_t _SL_CreateSemaphore(uint64_t reserved, int64_t count);

// The calls from here on are the run-time library's own. The hosted kernel offers none of them: each fails with
// RESULT_BAD_ARGUMENT there. All of them may also fail with RESULT_NO_OBJECT (a handle that names nothing, or an object
// of another kind) and RESULT_NOT_PERMITTED.

// Makes a memo, which is mapped nowhere yet.
//   size     bytes, rounded up to whole pages
//   kind     MEMO_ bits
//   returns  its handle, or NO_OBJECT (RESULT_NO_MEMORY)
uint64_t _SL_CreateMemo(uint64_t reserved, uint64_t size, uint64_t kind);

// Maps a part of a memo into a task's address space.
//   address  where the view begins, a multiple of the page size; 0: the kernel chooses
//   offset   into the memo, in pages
//   pages    length of the view
//   flags    VIEWFLAG_
//   returns  the view's handle, or NO_OBJECT (RESULT_NO_MEMORY: no room at that address, or anywhere)
uint64_t _SL_AllocView(uint64_t task, uint64_t memo, uint64_t address, uint64_t offset, uint64_t pages, uint64_t flags);

// Ends the views of a task in a range of its address space. A memo without views and handles goes with its last view.
//   address  a multiple of the page size
//   pages    length of the range
uint64_t _SL_VirtualFree(uint64_t task, uint64_t address, uint64_t pages);

// Makes a store: a row of words that each thread has for itself, 0 at first.
//   size     words
//   returns  its handle, or NO_OBJECT
uint64_t _SL_CreateStore(uint64_t reserved, uint64_t size);

// Reads a word of the calling thread's copy of a store.
//   index    below the store's size, else RESULT_NO_ITEM
//   value    out
uint64_t _SL_GetStore(uint64_t store, uint64_t index, uint64_t *value);

// Makes a watch on an object: an event that is set when the object ends.
//   object   any handle of it
//   returns  the event's handle, or NO_OBJECT
uint64_t _SL_CreateWatchObject(uint64_t reserved, uint64_t object);

// Makes an event, not set.
//   returns  its handle, or NO_OBJECT
uint64_t _SL_CreateEvent(uint64_t reserved, uint64_t flags);

// Sets an event and wakes every thread that waits for it. It stays set until it is reset.
uint64_t _SL_SetEvent(uint64_t event);
uint64_t _SL_ResetEvent(uint64_t event);

// Waits until an event is set.
//   record   out: what the event carries; may be null
//   timeout  milliseconds
//   returns  RESULT_TIMEOUT; RESULT_INTERRUPTED: wait again
uint64_t _SL_WaitForEventPtr(uint64_t event, kernel_message *record, int64_t timeout);

// Sets the function that a thread runs when an exception is raised in it.
//   handler   its address; 0: none, and the exception ends the task
//   argument  passed to it
uint64_t _SL_SetExceptionHandler(uint64_t thread, uint64_t handler, uint64_t argument);

// Returns from an exception handler: the thread goes on where it was interrupted.
//   node     depth of the exception that ends (THREADINFO_DEPTH)
//   returns  RESULT_NO_ITEM: the thread handles no such exception; does not return on success
uint64_t _SL_RetException(uint64_t thread, uint64_t node);

// Changes an item of the system's state.
//   item     KSTATE_
//   returns  RESULT_NO_ITEM: no such item, or one that cannot be changed
uint64_t _SL_SetState(uint64_t item, uint64_t value);

}  // extern "C"
