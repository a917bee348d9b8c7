// clients.cpp - the client library in any order of calls on the hostile kernel: results are among those promised, and
// outputs are as they have to be.
#include "hostile.h"

namespace {

constexpr size_t MOST_HELD = 8;  // devices, and requests
constexpr size_t TEXT_ROOM = 300;
constexpr size_t DATA_ROOM = 65536;  // no buffer is larger

struct held_request {
    device_record *device;
    IOreq *request;
};

struct session {
    fuzz_input &input;
    uint64_t port = CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY);
    std::vector<device_record *> devices = {};
    std::vector<held_request> requests = {};
    RegIterator record = {};
};

void check(bool kept) {
    if (!kept) std::abort();
}

void check(int result, std::initializer_list<int> promised) {
    check(std::find(promised.begin(), promised.end(), result) != promised.end());
}

int64_t timeout() { return static_cast<int64_t>(number()); }

template <class Held> size_t pick(const std::vector<Held> &held) { return now->input.byte() % held.size(); }

void use_devices(session &of) {
    if (of.devices.size() < MOST_HELD) {
        const bool by_name = (of.input.byte() & 1) != 0;
        device_record *opened = by_name ? OpenDevice("device") : OpenDeviceFromMsgPort(number());
        if (opened != nullptr) of.devices.push_back(opened);
    }
    if (of.devices.empty()) return;
    const size_t at = pick(of.devices);
    device_record *device = of.devices[at];
    if (of.input.byte() % 4 != 0) {
        if (of.requests.size() == MOST_HELD) return;
        IOreq *made = CreateIOreq(device, 0, IOREQ_FLAGS_DEFAULT, IOREQ_INLINE + number(), of.port);
        if (made != nullptr) of.requests.push_back({device, made});
        return;
    }
    check(static_cast<int>(CloseDevice(device)), {0, -1});
    of.devices.erase(of.devices.begin() + static_cast<ptrdiff_t>(at));
    std::erase_if(of.requests, [=](const held_request &of_it) { return of_it.device == device; });
}

void use_requests(session &of) {
    if (of.requests.empty()) return;
    const size_t at = pick(of.requests);
    IOreq *request = of.requests[at].request;
    request->command = REGCMD_GET_INT;
    request->payload = reinterpret_cast<uint64_t>(request) + IOREQ_INLINE;
    const uint8_t how = of.input.byte();
    switch (how % 9) {
    case 0: check(BeginIO(request), {IO_SUCCESS, IO_UNAVAILABLE}); break;
    case 1: check(AbortIO(request), {IO_SUCCESS, IO_UNAVAILABLE}); break;
    case 2: check(AbortIOEx(request, timeout()), {IO_SUCCESS, IO_UNAVAILABLE}); break;
    case 3:
        check(WaitIO(request, timeout()),
              {IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_TIME_EXPIRED, IO_UNAVAILABLE, IO_NO_REPLY});
        break;
    case 4: check(SyncIO(request), {IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_UNAVAILABLE, IO_NO_REPLY}); break;
    case 5:
    case 6:
        check(SyncIOEx(request, timeout(), (how & 0x40) != 0, (how & 0x80) != 0),
              {IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_NO_REPLY, IO_UNAVAILABLE, IO_TIME_EXPIRED, IO_INTERRUPTED});
        break;
    default:
        check(how % 9 == 7 ? DeleteIOreq(request) : DeleteIOreqAsync(request), {IO_SUCCESS, IO_UNAVAILABLE});
        of.requests.erase(of.requests.begin() + static_cast<ptrdiff_t>(at));
        break;
    }
}

void use_registry(session &of) {
    device_record *registry = GetRegDev();
    char path[TEXT_ROOM] = {};
    of.input.copy(path, of.input.byte());
    static constexpr char data[DATA_ROOM] = {};
    char value[TEXT_ROOM];
    const auto room = static_cast<uint32_t>(of.input.byte());
    uint32_t length = room;
    uint64_t word = 0;
    uint16_t type = 0;
    bool done = false;
    switch (of.input.byte() % 10) {
    case 0: RegCaps(registry, &length, nullptr, &length); break;
    case 1: RegKeyInfo(registry, path, &type, &length); break;
    case 2: RegGetKeyInt(registry, path, &word); break;
    case 3:
        done = RegGetKeyBin(registry, path, value, &length);
        check(done ? length <= room : length == room);
        break;
    case 4: RegSetKeyBin(registry, path, data, number()); break;
    case 5: RegCreateTmp(registry, path); break;
    case 6: RegCreateGuard(registry, path, number()); break;
    case 7: RegItEnd(registry, &of.record); break;
    default:
        done = (room & 1) != 0 ? RegItBegin(registry, &of.record, path) : RegItNext(registry, &of.record);
        check(done || of.record.on_entry == 0);
        break;
    }
}

void ask(session &of) {
    device_record *service = GetSystemService();
    char name[TEXT_ROOM];
    const size_t room = of.input.byte();
    uint64_t value = 0;
    uint32_t number32 = 0;
    const uint8_t what = of.input.byte();
    switch (what % 8) {
    case 0: check(SysvcGetPid(service, number(), &value) >= 0); break;
    case 1: check(SysvcGetPPid(service, number(), &value) >= 0); break;
    case 2: check(SysvcGetPgid(service, number(), nullptr) >= 0); break;
    case 3: check(SysvcGetSid(service, number(), &value) >= 0); break;
    case 4:
        if (SysvcDecomposeDevice(service, number(), name, room, &number32)) check(strnlen(name, room) < room);
        break;
    case 5: SysvcGetMaxMajor(service, &number32); break;
    case 6: check(CheckDeviceClass(GetRegDev(), what & 0x80 ? of.port : 0, "device", SERVICE_CLASS), {0, -1, 1}); break;
    default: {
        const int result =
            DeviceQuery(GetRegDev(), what & 0x80 ? of.port : 0, "device", DEVQUERY_POWER_LEVEL, number(), &value);
        check(result >= QUERY_SUCCESS && result <= QUERY_BAD_REPLY);
        break;
    }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    static constexpr void (*uses[])(session &) = {use_devices, use_requests, use_registry, ask};
    fuzz_input input(bytes, size);
    const hostility manner{.obliging = (input.byte() & 1) != 0};
    run_hostile(input, manner, [&] {
        session made{.input = input};
        while (input.size() != 0) uses[input.byte() % std::size(uses)](made);
    });
    return 0;
}
