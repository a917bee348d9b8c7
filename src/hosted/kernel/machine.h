// hosted/kernel/machine.h - what a machine gives to the hosted kernel: the objects behind the kernel calls.
//
// A machine is called with the kernel's lock held, never from two threads at once. Handles reach it resolved: it sees
// only master handles. All results are RESULT_ codes; outputs are written on success only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hosted {

class kernel;
class server;

// One walk of an iterator over objects of a machine.
class walk {
public:
    virtual ~walk() = default;

    // Moves onto the next object that still exists; RESULT_NO_ITEM at the end.
    virtual uint64_t step() = 0;

    // Reads one item of the object stood on; RESULT_NO_ITEM when it stands on none.
    virtual uint64_t info(uint64_t item, uint64_t &value) = 0;
};

class machine {
public:
    virtual ~machine() = default;

    // The kernel is ready: from here on ports, memory and handles of it may be used.
    virtual void attach(kernel &owner) = 0;

    // ---- identity and handles -----------------------------------------------------------------------------------

    virtual uint64_t task() = 0;                 // the calling task
    virtual uint64_t thread(bool first) = 0;     // a calling thread, the process's first or a further one; 0: of no
                                                 // name here, the kernel gives it a handle
    virtual bool knows(uint64_t handle) = 0;     // names an object of this machine (a vanished one does not)
    virtual uint64_t first_handle() = 0;         // where the kernel's own handles begin
    virtual bool reserves(uint64_t handle) = 0;  // a handle that the kernel must not give out

    // The tick at which a virtual clock starts; nothing for a machine that runs on the real clock.
    virtual std::optional<uint64_t> virtual_tick() = 0;

    // The number of kernel calls that a run may make; nothing for a machine that sets no limit.
    virtual std::optional<uint64_t> call_budget() { return std::nullopt; }

    // ---- state and system data ----------------------------------------------------------------------------------

    // A state item; false where the machine has no word on it (it then reads 0, and the ports of items 9 and 10 are
    // the kernel's own).
    virtual bool state(uint64_t item, uint64_t &value) = 0;

    virtual uint64_t system_data(uint64_t group, uint64_t index, uint64_t &value) = 0;

    // Whether the kernel's own ring of calls stands in where system_data has no trace.
    virtual bool traces_calls() = 0;

    // ---- objects ------------------------------------------------------------------------------------------------

    virtual uint64_t object_info(uint64_t handle, uint64_t item, uint64_t &value) = 0;

    // Begins a walk of kind ITERSEL_ over parent (SYSTEM_WIDE or a task). A walk given in may be reused or replaced.
    virtual uint64_t begin(uint64_t parent, uint64_t kind, std::unique_ptr<walk> &out) = 0;

    virtual uint64_t set_property(uint64_t task, uint64_t property, uint64_t value) = 0;
    virtual uint64_t fetch_register(uint64_t thread, uint64_t id, uint64_t node, uint64_t &value) = 0;
    virtual uint64_t raise(uint64_t task, uint64_t exception, uint64_t parameter) = 0;

    // Ends an object. The calling task itself is ended by the entry functions, after this has agreed to it.
    virtual uint64_t destroy(uint64_t handle) = 0;

    virtual void exit_notice(uint64_t master, uint64_t word) = 0;

    // ---- servers ------------------------------------------------------------------------------------------------

    // The server behind the registry port.
    virtual std::unique_ptr<server> make_registry(kernel &owner) = 0;

    // The server of a device (null: no such device). Each is made once, when its port is first asked for.
    virtual std::unique_ptr<server> make_device(kernel &owner, std::string_view name) = 0;

    // ---- terminals: as open, ioctl and close, errno included ----------------------------------------------------

    virtual int open_terminal(const char *path, int flags) = 0;
    virtual int control_terminal(int descriptor, unsigned long request, char *buffer) = 0;
    virtual void close_terminal(int descriptor) = 0;

    // ---- the end ------------------------------------------------------------------------------------------------

    // Writes the machine's state where it is to be saved; false with a message for a person when that failed.
    virtual bool save(std::string &message) = 0;
};

}  // namespace hosted
