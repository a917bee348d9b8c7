// hosted/kernel/machine.h - what the hosted kernel asks of a machine: the objects, figures and servers that the kernel
// calls show.
//
// A machine is called with the kernel's lock held, never from two threads at once. Handles reach it resolved: it sees
// only master handles. Results are RESULT_ codes. Outputs are written on success only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace hosted {

class kernel;
class server;

// One walk of an iterator over objects of a machine. It is used only while the machine lives.
class walk {
public:
    virtual ~walk() = default;

    // Moves to the next object that still exists. RESULT_NO_ITEM at the end.
    virtual uint64_t step() = 0;

    // Reads one item of the current object. RESULT_NO_ITEM before the first step, after the end, and for an item that
    // the object does not have.
    virtual uint64_t info(uint64_t item, uint64_t &value) = 0;

    // Whether the current object exists at this moment. What has ended since the step may have read as 0.
    virtual bool exists() { return true; }
};

// The servers of a machine. Each is made once, when its port is first asked for.
class server_source {
public:
    // The server of the registry (KSTATE_REGISTRY_PORT).
    virtual std::unique_ptr<server> make_registry(kernel &owner) = 0;

    // The server of a device; null where there is no device of that name.
    virtual std::unique_ptr<server> make_device(kernel &owner, std::string_view name) = 0;

protected:
    ~server_source() = default;
};

// The terminals of a machine. A call that fails returns -1 with errno set.
class terminal_source {
public:
    // Opens the device file of a terminal. Returns its descriptor.
    //   flags  of open(), by the platform's numbers
    virtual int open_terminal(const char *path, int flags) = 0;

    // Performs a TERMCTL_ request on an open terminal, or on standard input (descriptor 0). Returns 0.
    //   buffer  TERM_LAYOUT_SIZE bytes
    virtual int control_terminal(int descriptor, unsigned long request, char *buffer) = 0;

    virtual void close_terminal(int descriptor) = 0;  // ignores a descriptor that is not open

protected:
    ~terminal_source() = default;
};

// What the kernel asks a machine once, when it starts to run over it.
struct machine_start {
    uint64_t task = 0;          // the calling task
    uint64_t first_handle = 1;  // where the kernel's own handles begin

    // The tick at which a virtual clock starts; nothing for the real clock.
    std::optional<uint64_t> virtual_tick;

    // Added to the milliseconds since boot where the clock is the real one.
    uint64_t tick_offset = 0;

    // The number of kernel calls that a run may make; nothing for any number.
    std::optional<uint64_t> call_budget;
    bool budget_given = false;  // by whoever described the machine; else it only stops a run that never ends

    // The machine has no trace of its own: the kernel records its calls, and its ring answers the KSYSIDX_TRACE groups
    // where system_data() returns RESULT_NO_ITEM.
    bool traces_calls = false;
};

class machine {
public:
    virtual ~machine() = default;

    virtual machine_start start() = 0;

    // Called once, when the kernel is ready: from here on the machine may use its ports, memory and handles. The kernel
    // must outlive the machine's servers and walks.
    virtual void attach(kernel &owner) = 0;

    // ---- handles ------------------------------------------------------------------------------------------------

    // The handle of the calling thread, at its first call; 0: the kernel makes one.
    //   first  it is the first thread of the run to call
    virtual uint64_t thread(bool first) = 0;

    virtual bool knows(uint64_t handle) = 0;     // whether it names an object of this machine that exists
    virtual bool reserves(uint64_t handle) = 0;  // whether the kernel must leave it to this machine

    // ---- state and system data ----------------------------------------------------------------------------------

    // Reads a KSTATE_ item. False where the machine does not define it: it then reads 0, and KSTATE_REGISTRY_PORT and
    // KSTATE_EXIT_NOTICE_PORT read the kernel's own ports.
    virtual bool state(uint64_t item, uint64_t &value) = 0;

    // Reads one figure of a KSYSIDX_ group. RESULT_NO_ITEM where there is none.
    virtual uint64_t system_data(uint64_t group, uint64_t index, uint64_t &value) = 0;

    // ---- objects ------------------------------------------------------------------------------------------------

    // Reads an item (OBJINFO_, TASKINFO_, ...) of an object. RESULT_NO_OBJECT, RESULT_NO_ITEM, or the code that reading
    // that item fails with.
    virtual uint64_t object_info(uint64_t handle, uint64_t item, uint64_t &value) = 0;

    // Begins a walk over the objects that an ITERSEL_ kind selects.
    //   parent   SYSTEM_WIDE for tasks, memory chunks and virtual spaces; else a task
    //   out      the walk, before its first object; replaced on success only
    //   returns  RESULT_NO_OBJECT for a wrong parent, RESULT_BAD_ARGUMENT for an unknown kind, or the code that reading
    //            the list fails with
    virtual uint64_t begin(uint64_t parent, uint64_t kind, std::unique_ptr<walk> &out) = 0;

    // Sets a TASKPROP_ property of a task. RESULT_NO_OBJECT for anything but a task, RESULT_BAD_ARGUMENT for an unknown
    // property or a value out of range, RESULT_NOT_PERMITTED where the machine refuses.
    virtual uint64_t set_property(uint64_t task, uint64_t property, uint64_t value) = 0;

    // Reads a register of a thread.
    //   id       as the register-information groups list it
    //   node     depth of the exception whose registers to read; 0: those of the thread itself
    //   returns  RESULT_NO_OBJECT for anything but a thread, RESULT_NO_ITEM where there is no such register or node,
    //            RESULT_TIMEOUT where the thread does not stop
    virtual uint64_t fetch_register(uint64_t thread, uint64_t id, uint64_t node, uint64_t &value) = 0;

    // Raises an exception in a task.
    //   exception  EXC_
    //   parameter  the exception's own
    //   returns    RESULT_NO_OBJECT, RESULT_BAD_ARGUMENT for an exception or a signal that does not exist,
    //              RESULT_NOT_PERMITTED
    virtual uint64_t raise(uint64_t task, uint64_t exception, uint64_t parameter) = 0;

    // Ends an object. The calling task is not ended here: success permits the kernel's caller to end the process.
    //   returns  RESULT_NO_OBJECT, RESULT_NOT_PERMITTED, RESULT_TIMEOUT where it has not ended in time
    virtual uint64_t destroy(uint64_t handle) = 0;

    // Receives the words of a MSG_TASK_EXIT message to the port of KSTATE_EXIT_NOTICE_PORT.
    //   master  handle of the task that has ended
    //   word    its exit code, shifted left by 8
    virtual void exit_notice(uint64_t master, uint64_t word) = 0;

    // Limits the registry to what every user of the system may read, whatever the caller may. Called before the
    // registry is first used.
    virtual void withhold_secrets() {}

    // ---- tasks of other processes -------------------------------------------------------------------------------

    // Publishes the name of such a task in the registry, and takes it back.
    virtual void publish_task(uint64_t /*handle*/, std::string_view /*name*/) {}
    virtual void withdraw_task(uint64_t /*handle*/) {}

    // One of their ids as the system service reports it, by a SYSVCCMD_ command and its key; nothing for another
    // process.
    virtual std::optional<uint64_t> process_id(uint32_t /*command*/, uint64_t /*key*/) { return std::nullopt; }

    // Whether an address lies in memory that one of them shares, beside the kernel's arena.
    virtual bool shares(uint64_t /*address*/) { return false; }

    // ---- the rest -----------------------------------------------------------------------------------------------

    virtual server_source &servers() = 0;
    virtual terminal_source &terminals() = 0;

    // Writes the machine's state where it is to be saved, if anywhere. On failure returns false.
    //   message  out, on failure: "FILE: what is wrong", for a person
    virtual bool save(std::string &message) = 0;
};

}  // namespace hosted
