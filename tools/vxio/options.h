// The command line of every vxio command: options anywhere before "--",
// "--opt VALUE" and "--opt=VALUE" alike, numbers checked against their
// range, operands counted. The parser touches no system object, so it
// builds and is tested natively; run_options is the tool's side (help,
// the one-line reason and the hint to --help).
#ifndef VXIO_TOOL_OPTIONS_H
#define VXIO_TOOL_OPTIONS_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace vxio_tool {

enum class OptionKind { kFlag, kText, kNumber };

struct OptionRule {
    const char *name;   // "--jobs"
    OptionKind kind;
    uint64_t min = 0;   // the range of a kNumber value
    uint64_t max = UINT64_MAX;
    const char *alias = nullptr;  // a short form, "-c"
};

struct ParsedArgs {
    // Every option given, in order, by its long name; a flag's value is "".
    std::vector<std::pair<std::string, std::string>> options;
    std::vector<std::string> operands;
    // The position of each operand among the arguments (argv[position]),
    // so that a command can take its wide form.
    std::vector<size_t> operandPositions;
    bool help = false;

    bool has(const char *name) const;
    // The value given last, or null when the option was not given.
    const std::string *value(const char *name) const;
    std::vector<std::string> values(const char *name) const;
    // A kNumber option's value (checked by the parser), or fallback.
    uint64_t number(const char *name, uint64_t fallback) const;
};

// A decimal number from min to max: digits only, no sign, no spaces, no
// trailing text, no overflow.
bool parse_number(const std::string &text, uint64_t min, uint64_t max, uint64_t *value);

// Parses args (the arguments after the command's name). operandName names
// the operands in messages ("PID", "PATH"); between minOperands and
// maxOperands of them are taken. False with *error set to the one-line
// reason: "unknown option '--bogus'", "option '--out' needs a value",
// "option '--json' takes no value", "--jobs takes a number from 1 to 64",
// "missing PID", "extra operand 'x'". "-h" and "--help" set help and
// stop the parsing (the rest is not looked at); "--" ends the options;
// "-" alone is an operand.
bool parse_arguments(const std::vector<std::string> &args, const std::vector<OptionRule> &rules,
                     const char *operandName, size_t minOperands, size_t maxOperands,
                     ParsedArgs *parsed, std::string *error);

// "vxio COMMAND: MESSAGE" and "Try 'vxio COMMAND --help'." on stderr;
// returns 2, the exit code of bad usage. command may be null for the
// tool's own options.
int usage_error(const char *command, const std::string &message);

// The tool's side: parses argv (argv[0] the command's name), prints usage
// on stdout for --help (returning 0) or the reason and "Try 'vxio COMMAND
// --help'." on stderr for bad usage (returning 2); -1 to go on.
int run_options(const char *command, const char *usage, int argc, char **argv,
                const std::vector<OptionRule> &rules, const char *operandName,
                size_t minOperands, size_t maxOperands, ParsedArgs *parsed);
// The same for arguments given apart (those after the command's name), as
// the commands that take names in UTF-8 have them.
int run_options(const char *command, const char *usage, const std::vector<std::string> &args,
                const std::vector<OptionRule> &rules, const char *operandName,
                size_t minOperands, size_t maxOperands, ParsedArgs *parsed);

}  // namespace vxio_tool

#endif  // VXIO_TOOL_OPTIONS_H
