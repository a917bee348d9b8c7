// common/commandline.h - a command's line as a table: its options, its operands, and the answer to each mistake.
//
// A command states its options in a table of sb_option rows and the rest in an sb_commandline; sb_parse reads the line
// by them. Tools that write manual pages and completions read the same tables through sb_description. Everything is
// constant data: nothing runs before main.
#pragma once

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <type_traits>

#include "common/options.h"
#include "common/status.h"

// The code of the long option "--sort", which has no letter.
inline constexpr int SB_SORT_OPTION = 1000;

// What a word of the command line names: the argument of an option, or an operand.
enum class sb_word : uint8_t {
    none,
    number,
    text,
    style,     // of a table
    sortspec,  // the column and order of a table's rows
    task,      // a name; a handle where the command's -P is given
    device,
    unit,  // of a device, a number
    query,
    service,
    keyval,  // an argument of a service, KEY=VALUE
    registry_path,
    registry_key,
    terminal,  // the file of a terminal device
    layout,    // of a keyboard
    property,
    exception,
    date,
    time,
};

// One option, whatever record it sets.
struct sb_optionrow {
    // Stores what the option says, its argument included, in the command's options record.
    //   returns  false where the argument is missing or invalid
    using taker = bool (*)(void *options, e_optstate *state, const sb_optionrow &row);

    int16_t code;  // its letter, or SB_SORT_OPTION
    sb_word argument;
    int32_t value;          // what it stores, where that is a number
    const char *long_name;  // with its "--"; null for none
    taker take;
};

// One option of a command whose options record is Options.
template <class Options> struct sb_option { sb_optionrow row; };

template <class> struct sb_member;
template <class Record, class Value> struct sb_member<Value Record::*> {
    using record = Record;
    using value = Value;
};
template <auto Member> using sb_recordof = typename sb_member<decltype(Member)>::record;
template <auto Member> using sb_valueof = typename sb_member<decltype(Member)>::value;

// The member of an options record. Static, since a compiler may give a template over a member of an unnamed namespace's
// record external linkage: two commands with a member of one name would share one function.
template <auto Member> static sb_valueof<Member> &sb_field(void *options) {
    return static_cast<sb_recordof<Member> *>(options)->*Member;
}

// A row with a function of the command's own.
template <class Options>
constexpr sb_option<Options> takes(int code, sb_word argument, sb_optionrow::taker take,
                                   const char *long_name = nullptr) {
    return {{static_cast<int16_t>(code), argument, 0, long_name, take}};
}

// The option stores a value.
template <auto Member, auto Value = true>
constexpr sb_option<sb_recordof<Member>> sets(int code, const char *long_name = nullptr) {
    using value = sb_valueof<Member>;
    if constexpr (std::is_pointer_v<value>) {
        return takes<sb_recordof<Member>>(
            code, sb_word::none,
            [](void *options, e_optstate *, const sb_optionrow &) {
                sb_field<Member>(options) = Value;
                return true;
            },
            long_name);
    } else {
        return {{static_cast<int16_t>(code), sb_word::none, static_cast<int32_t>(Value), long_name,
                 [](void *options, e_optstate *, const sb_optionrow &row) {
                     sb_field<Member>(options) = static_cast<value>(row.value);
                     return true;
                 }}};
    }
}

// The option takes a number, as e_opt_getrangeint reads it.
template <auto Member, long long Min = LLONG_MIN, long long Max = LLONG_MAX>
constexpr sb_option<sb_recordof<Member>> takes_number(int code, const char *long_name = nullptr) {
    return takes<sb_recordof<Member>>(
        code, sb_word::number,
        [](void *options, e_optstate *state, const sb_optionrow &) {
            long long number = 0;
            if (e_opt_getrangeint(state, &number, Min, Max) != E_OPT_DONE) return false;
            sb_field<Member>(options) = static_cast<sb_valueof<Member>>(number);
            return true;
        },
        long_name);
}

enum : bool { SB_MAY_BE_EMPTY = false, SB_NOT_EMPTY = true };

// The option takes a text, which is borrowed.
template <auto Member, bool NotEmpty = SB_MAY_BE_EMPTY>
constexpr sb_option<sb_recordof<Member>> takes_text(int code, sb_word argument, const char *long_name = nullptr) {
    return takes<sb_recordof<Member>>(
        code, argument,
        [](void *options, e_optstate *state, const sb_optionrow &) {
            const char *text = e_opt_getstr(state);
            sb_field<Member>(options) = text;
            return text != nullptr && !(NotEmpty && text[0] == '\0');
        },
        long_name);
}

// The options of a table's style and order of rows.
template <auto Member> constexpr auto takes_style(const char *long_name = nullptr) {
    return takes_text<Member>('S', sb_word::style, long_name);
}
template <auto Member> constexpr auto takes_sort() {
    return takes_text<Member>(SB_SORT_OPTION, sb_word::sortspec, "--sort");
}

// The rows of a table with a long name, as e_setlongoption takes them.
template <class Options, size_t Count> constexpr auto sb_longoptions(const sb_option<Options> (&table)[Count]) {
    std::array<e_longopt, Count + 1> longs = {};
    size_t used = 0;
    for (const auto &[row] : table) {
        if (row.long_name != nullptr) longs[used++] = {row.long_name, row.code};
    }
    return longs;
}

// The answer to a mistake on the line: words after "COMMAND: ", in which % is the option's letter or the operand.
struct sb_answer {
    const char *words;  // empty: nothing is printed; null: the usage instead
    int status;         // ends the run
};
inline constexpr sb_answer SB_SHOW_USAGE = {nullptr, SB_DONE};

enum class sb_speech : uint8_t {
    on_stderr,
    on_stdout,  // and an unknown switch without the command's name
};

inline constexpr int SB_ANY_NUMBER = INT_MAX;

// The operands of a command.
struct sb_operands {
    int min = 0;
    int max = SB_ANY_NUMBER;
    sb_word words[3] = {};  // what they name, in order; the last one is for all that follow
    sb_answer missing = {"missing operand", SB_FAILED};
    sb_answer extra = {"extra operand: '%'", SB_FAILED};  // % is the first one too many
};
inline constexpr sb_operands SB_NO_OPERANDS = {.max = 0};

// All of a command's line but its options.
struct sb_commandline {
    const char *command;
    const char *usage = nullptr;              // as it appears on the screen; null where print_usage prints all of it
    void (*print_usage)() = nullptr;          // prints what follows the text, on standard output
    const e_longopt *long_options = nullptr;  // of sb_longoptions
    sb_operands operands = {};
    sb_answer bad_argument = {"-%: missing or invalid operand", SB_FAILED};  // of an option
    sb_speech speech = sb_speech::on_stderr;
};

// What a program that walks the commands sees of one.
struct sb_description {
    const sb_commandline *line;
    const sb_optionrow *options;
    size_t option_count;
};

template <class Options, size_t Count>
constexpr sb_description sb_describe(const sb_commandline &line, const sb_option<Options> (&table)[Count]) {
    static_assert(sizeof(sb_option<Options>) == sizeof(sb_optionrow));  // a table is an array of rows
    return {&line, &table[0].row, Count};
}

// Prints "COMMAND: ", the formatted words and a line feed on the stream that the command speaks on, as one write.
//   format  of printf, at most 200 bytes; what it formats may be of any length
[[gnu::format(printf, 2, 3)]] void sb_say(const sb_commandline &line, const char *format, ...);

// The same for what ends a run or a part of it. Returns the status given: return sb_fail(line, SB_SETUP, ...).
[[gnu::format(printf, 3, 4)]] int sb_fail(const sb_commandline &line, int status, const char *format, ...);

// Prints the usage on standard output. Returns SB_DONE.
int sb_showusage(const sb_commandline &line);

// The work of sb_parse.
std::optional<int> sb_parserows(const sb_description &what, int &argc, char **&argv, void *options);

// Parses a command's line.
//   argc, argv  the entry's own; afterwards the operands, as many as the line allows
//   opts        changed by the options in their order
//   returns     the status that ends the run, after "--help" or a mistake and what is printed for it; or nothing
template <class Options, size_t Count>
std::optional<int> sb_parse(const sb_commandline &line, const sb_option<Options> (&table)[Count], int &argc,
                            char **&argv, Options &opts) {
    return sb_parserows(sb_describe(line, table), argc, argv, &opts);
}
