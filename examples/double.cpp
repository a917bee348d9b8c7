// double.cpp - a client of the device "doubler": prints its argument doubled.
#include <cstdio>
#include <cstdlib>

#include "doubler.h"
#include "platform/device.h"

int main(int argc, char **argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: double NUMBER\n"), 2;
    device_record *device = OpenDevice(DOUBLER);
    if (device == nullptr) return std::fprintf(stderr, "double: no device %s\n", DOUBLER), 1;

    // The argument block lies in the request itself, after its header.
    const uint64_t port = _SL_CreateMsgPort(0, 0);
    IOreq *request = CreateIOreq(device, 0, IOREQ_FLAGS_DEFAULT, sizeof(IOreq) + sizeof(uint64_t), port);
    int status = 1;
    if (request != nullptr) {
        auto *number = reinterpret_cast<uint64_t *>(request + 1);
        *number = std::strtoull(argv[1], nullptr, 0);
        request->command = DOUBLE_NUMBER;
        request->payload = reinterpret_cast<uint64_t>(number);
        status = SyncIO(request) == IO_SUCCESS ? 0 : 1;
        if (status == 0) std::printf("%llu\n", static_cast<unsigned long long>(*number));
        DeleteIOreq(request);
    }
    if (status != 0) std::fprintf(stderr, "double: the request failed\n");
    DeleteMsgPort(port);
    CloseDevice(device);
    return status;
}
