// fuzz/options.cpp - the option parser on any arguments, fetched in every way: what it leaves are words of the line.
#include <cstdlib>

#include "common/options.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    static constexpr e_longopt table[] = {{"--all", 'a'},    {"--a", 300}, {"--size", 's'},
                                          {"--number", 'n'}, {"--", 301},  {nullptr, 0}};
    fuzz_input input(bytes, size);
    const uint8_t flags = input.byte();
    std::vector<std::string> words;
    while (input.size() != 0) words.emplace_back(input.text_until('\n'));
    std::vector<char *> vector;
    for (std::string &word : words) vector.push_back(word.data());
    vector.push_back(nullptr);

    int argc = static_cast<int>(words.size());
    char **argv = vector.data();
    e_optstate state;
    e_initoption(&state, &argc, &argv, (flags & 1) != 0);
    if (flags & 2) e_setlongoption(&state, table);
    long long number = 0;
    unsigned long long bytes_read = 0;
    // An option of the byte 0xFF looks like the end to its caller, but is none yet.
    for (size_t options = size + 2; e_getoption(&state) != E_END || state.argv_out != nullptr; --options) {
        if (options == 0) std::abort();  // more options than characters
        switch (flags >> 2 & 7) {
        case 0: e_opt_getint(&state, &number); break;
        case 1:
            if (e_opt_getrangeint(&state, &number, -5, 5) == E_OPT_DONE && (number < -5 || number > 5)) std::abort();
            break;
        case 2: e_opt_getsize(&state, &bytes_read); break;
        case 3: e_opt_getstr(&state); break;
        default: break;
        }
    }
    if (argc < 0 || static_cast<size_t>(argc) > words.size() || argv[argc] != nullptr) std::abort();
    for (int left = 0; left < argc; ++left) {
        if (std::find(vector.begin(), vector.end(), argv[left]) == vector.end()) std::abort();
    }
    return e_getoption(&state) == E_END ? 0 : (std::abort(), 0);
}
