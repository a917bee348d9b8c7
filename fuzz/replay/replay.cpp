// fuzz/replay/replay.cpp - runs a fuzz target once on each file of the given directories, in the order of their names.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size);
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void *descriptor);

int main(int argc, char **argv) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());

    // Discards what the targets print. The name of each input and messages of a crash keep their descriptor.
    const int report = dup(STDERR_FILENO);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere, stream);
    if (__sanitizer_set_report_fd) __sanitizer_set_report_fd(reinterpret_cast<void *>(static_cast<intptr_t>(report)));

    for (const auto &file : files) {
        dprintf(report, "%s\n", file.c_str());
        std::ifstream stream(file, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        // A copy of the exact size, so that the sanitizer detects an overread.
        const auto bytes = std::make_unique<uint8_t[]>(text.size());
        std::copy(text.begin(), text.end(), bytes.get());
        LLVMFuzzerTestOneInput(bytes.get(), text.size());
    }
    dprintf(report, "%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
