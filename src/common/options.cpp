// common/options.cpp - the cursor over the arguments.
#include "common/options.h"

#include <climits>
#include <cstdlib>
#include <cstring>

namespace {
// Rewrites the caller's variables, once, and leaves the cursor after the end.
int finish(e_optstate *state) {
    if (state->argv_out == nullptr) return E_END;
    if (state->permute) {
        state->operands[state->operand_count] = nullptr;
        *state->argc_out = state->operand_count;
        *state->argv_out = state->operands;
    } else {
        *state->argc_out = state->argc - state->index;
        *state->argv_out = state->argv + state->index;
    }
    state->argv_out = nullptr;
    state->argc = state->index;
    return E_END;
}

// An option's character as e_getoption returns it. The bytes that would read as E_END and E_HELP keep their unsigned
// value.
int option_character(char c) {
    const int value =
        static_cast<signed char>(c);  // NOLINT(bugprone-signed-char-misuse): bytes above 0x7F are negative
    return value == E_END || value == E_HELP ? static_cast<unsigned char>(c) : value;
}

int length_of(const char *text) {
    const size_t length = std::strlen(text);
    return length < INT_MAX ? static_cast<int>(length) : INT_MAX - 1;  // leaves room for a cursor after the end
}

// The code of the table's row for the long option under the cursor, which is then used up, but for its "=value".
// Without such a row it is read as the short option '-', followed by its letters.
int long_option(e_optstate *state) {
    char *element = state->argv[state->index];
    const size_t n = std::strcspn(element, "=");
    for (const e_longopt *row = state->long_options; row != nullptr && row->name != nullptr; ++row) {
        if (std::strncmp(row->name, element, n) != 0 || row->name[n] != '\0') continue;
        if (element[n] == '=') {
            state->argv[state->index] = element + n + 1;
            state->len = length_of(element + n + 1);
            state->pos = -1;  // on the '=', the byte before the element
        } else {
            state->pos = state->len + 1;
        }
        return row->code;
    }
    state->pos = 2;
    return '-';
}

// Moves the cursor onto the argument of the current option; null and the result at *why where there is none.
char *fetch(e_optstate *state, int *why) {
    *why = E_OPT_INVALID;
    if (state->index >= state->argc) return nullptr;
    *why = E_OPT_MISSING;
    if (state->pos > 0 && ++state->index >= state->argc) return nullptr;
    *why = E_OPT_DONE;
    state->pos = 1;
    state->len = 0;
    return state->argv[state->index];
}
}  // namespace

void e_initoption(e_optstate *state, int *argc, char ***argv, bool permute) {
    *state = {.argv_out = argv,
              .argc_out = argc,
              .operands = *argv,
              .operand_count = 0,
              .argv = *argv,
              .argc = *argc,
              .index = -1,
              .pos = 1,
              .len = 0,
              .permute = permute,
              .long_options = nullptr};
}

void e_setlongoption(e_optstate *state, const e_longopt *table) { state->long_options = table; }

int e_getoption(e_optstate *state) {
    if (state->index >= state->argc) return finish(state);
    if (state->pos < state->len) return option_character(state->argv[state->index][state->pos++]);

    char *element = nullptr;
    for (;;) {
        if (++state->index >= state->argc) return finish(state);
        element = state->argv[state->index];
        state->len = length_of(element);
        if (element[0] == '-' && (state->len > 1 || !state->permute)) break;
        if (!state->permute) return finish(state);
        state->operands[state->operand_count++] = element;
    }

    if (element[1] != '-') {
        state->pos = 2;
        return option_character(element[1]);
    }
    if (std::strcmp(element, "--help") == 0) {
        state->pos = state->len + 1;
        return E_HELP;
    }
    return long_option(state);
}

int e_opt_getint(e_optstate *state, long long *value) {
    int result = E_OPT_DONE;
    if (const char *argument = fetch(state, &result)) *value = std::strtoll(argument, nullptr, 0);
    return result;
}

int e_opt_getrangeint(e_optstate *state, long long *value, long long min, long long max) {
    long long number = 0;
    if (const int result = e_opt_getint(state, &number)) return result;
    if (number < min || number > max) return E_OPT_RANGE;
    *value = number;
    return E_OPT_DONE;
}

int e_opt_getsize(e_optstate *state, unsigned long long *value) {
    static constexpr char suffixes[] = "KMGTPEZY";  // powers 1 to 8
    int result = E_OPT_DONE;
    char *argument = fetch(state, &result);
    if (argument == nullptr) return result;

    char *suffix = nullptr;
    auto number = static_cast<unsigned long long>(std::strtoll(argument, &suffix, 0));
    if (*suffix != '\0') {
        unsigned long long multiplier = 1024;
        const char *unit = suffix + 1;
        if (std::strcmp(unit, "B") == 0 || std::strcmp(unit, "b") == 0) {
            multiplier = 1000;
        } else if (*unit != '\0' && std::strcmp(unit, "iB") != 0) {
            return E_OPT_INVALID;
        }
        if (*suffix == 'k') *suffix = 'K';
        const char *letter = std::strchr(suffixes, *suffix);
        if (letter == nullptr) return E_OPT_INVALID;
        for (const char *power = suffixes; power <= letter; ++power) number *= multiplier;
    }
    *value = number;
    return E_OPT_DONE;
}

const char *e_opt_getstr(e_optstate *state) {
    int result = E_OPT_DONE;
    return fetch(state, &result);
}
