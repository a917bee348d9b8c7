// common/options.h - the option parser of all commands: one option character at a time, arguments on request, and at
// the end only the operands left in the caller's count and vector.
//
// Order of calls: e_initoption, e_setlongoption where there is a table, then e_getoption until E_END; an option that
// takes an argument fetches it with one e_opt_get... call right after it was returned. There is no end-of-options
// marker and no argument attached to a short option: "-T100" takes the argument from the next element, and the letters
// after one that took an argument are lost. The parser prints nothing and allocates nothing.
#pragma once

// What e_getoption returns beside an option character or a long option's code.
enum : int {
    E_END = -1,   // no more options; the caller's count and vector now hold the operands
    E_HELP = -2,  // "--help"
};

// Results of the e_opt_get... calls.
enum : int {
    E_OPT_DONE = 0,
    E_OPT_MISSING = 1,  // there is no further element
    E_OPT_INVALID = 2,  // the end was reached before; e_opt_getsize: or no size suffix
    E_OPT_RANGE = 3,    // outside the bounds
};

// One row of a long-option table; a null name ends the table. A long option with a short form has its letter as code,
// one without a code of 256 or more.
struct e_longopt {
    const char *name;  // with the leading "--"
    int code;
};

// The parser's state, owned by the caller; filled by e_initoption and changed by the parser alone.
struct e_optstate {
    char ***argv_out;  // the caller's vector; null once it was rewritten
    int *argc_out;     // the caller's count
    char **operands;   // where operands are gathered: the caller's vector, compacted in place
    int operand_count;
    char **argv;  // what is being parsed
    int argc;
    int index;     // element under the cursor; -1 before the first
    int pos;       // next character of that element; -1 where the element is the argument of "--name=..."
    int len;       // bytes of that element
    bool permute;  // gather operands from anywhere, not only after the options
    const e_longopt *long_options;  // or null
};

// Starts parsing.
//   argc, argv  the caller's variables: the arguments alone, without a command name. The vector has room for a null
//               after its last element, as the one of main has, and is rewritten in place
//   permute     true: operands may be among the options. False: the first operand ends the options, and a lone "-"
//               is an option of character NUL
void e_initoption(e_optstate *state, int *argc, char ***argv, bool permute);

void e_setlongoption(e_optstate *state, const e_longopt *table);  // borrowed; null for none

// The next option.
//   returns  its character (a signed char widened to int, so bytes above 0x7F are negative, but 255 and 254 for the
//            bytes 0xFF and 0xFE), a long option's code, E_HELP, or E_END, and again E_END after that. '-' for a long
//            option that is not in the table
// A value given to a long option that nobody fetches is read as options: '=' is returned next.
int e_getoption(e_optstate *state);

// The argument of the option just returned, as a number: decimal, 0x hexadecimal or 0 octal, anything after it
// ignored, 0 where there is none. Outputs stay untouched unless the result is E_OPT_DONE.
//   returns  E_OPT_
int e_opt_getint(e_optstate *state, long long *value);
int e_opt_getrangeint(e_optstate *state, long long *value, long long min, long long max);  // min <= value <= max

// The same with a size suffix: one of K M G T P E Z Y (also k) for a power of 1024, that letter and "iB" likewise, or
// that letter and B (also b) for a power of 1000. Wraps at 2^64. A k is changed to K in the argument itself.
int e_opt_getsize(e_optstate *state, unsigned long long *value);

// The argument unchanged, or null where there is none.
const char *e_opt_getstr(e_optstate *state);
