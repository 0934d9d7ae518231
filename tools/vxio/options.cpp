// The option parser shared by every command (see options.h). No system
// call here: it builds natively, for its tests and its fuzzing.
#include "options.h"

#include <stdio.h>

namespace vxio_tool {

bool ParsedArgs::has(const char *name) const { return value(name) != nullptr; }

const std::string *ParsedArgs::value(const char *name) const {
    for (auto it = options.rbegin(); it != options.rend(); ++it)
        if (it->first == name) return &it->second;
    return nullptr;
}

std::vector<std::string> ParsedArgs::values(const char *name) const {
    std::vector<std::string> all;
    for (const auto &option : options)
        if (option.first == name) all.push_back(option.second);
    return all;
}

uint64_t ParsedArgs::number(const char *name, uint64_t fallback) const {
    const std::string *text = value(name);
    uint64_t result = fallback;
    if (text && !parse_number(*text, 0, UINT64_MAX, &result)) return fallback;
    return result;
}

bool parse_number(const std::string &text, uint64_t min, uint64_t max, uint64_t *value) {
    if (text.empty() || text.size() > 20) return false;
    uint64_t result = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return false;
        const uint64_t digit = static_cast<uint64_t>(c - '0');
        if (result > (UINT64_MAX - digit) / 10) return false;
        result = result * 10 + digit;
    }
    if (result < min || result > max) return false;
    *value = result;
    return true;
}

namespace {

const OptionRule *find_rule(const std::vector<OptionRule> &rules, const std::string &name) {
    for (const OptionRule &rule : rules)
        if (name == rule.name || (rule.alias && name == rule.alias)) return &rule;
    return nullptr;
}

std::string range_text(const OptionRule &rule) {
    if (rule.max == UINT64_MAX) return "a number from " + std::to_string(rule.min) + " up";
    return "a number from " + std::to_string(rule.min) + " to " + std::to_string(rule.max);
}

bool fail(std::string *error, const std::string &reason) {
    *error = reason;
    return false;
}

}  // namespace

bool parse_arguments(const std::vector<std::string> &args, const std::vector<OptionRule> &rules,
                     const char *operandName, size_t minOperands, size_t maxOperands,
                     ParsedArgs *parsed, std::string *error) {
    *parsed = ParsedArgs();
    bool optionsDone = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &arg = args[i];
        if (optionsDone || arg == "-" || arg.empty() || arg[0] != '-') {
            if (parsed->operands.size() >= maxOperands)
                return fail(error, "extra operand '" + arg + "'");
            parsed->operands.push_back(arg);
            parsed->operandPositions.push_back(i + 1);
            continue;
        }
        if (arg == "--") {
            optionsDone = true;
            continue;
        }
        if (arg == "-h" || arg == "--help") {
            parsed->help = true;
            return true;
        }
        const size_t equals = arg.compare(0, 2, "--") == 0 ? arg.find('=') : std::string::npos;
        const std::string name = arg.substr(0, equals);
        const OptionRule *rule = find_rule(rules, name);
        if (!rule) return fail(error, "unknown option '" + name + "'");
        std::string value;
        if (rule->kind == OptionKind::kFlag) {
            if (equals != std::string::npos)
                return fail(error, "option '" + std::string(rule->name) + "' takes no value");
        } else if (equals != std::string::npos) {
            value = arg.substr(equals + 1);
        } else if (i + 1 < args.size()) {
            value = args[++i];
        } else {
            return fail(error, "option '" + std::string(rule->name) + "' needs a value");
        }
        if (rule->kind == OptionKind::kText && value.empty())
            return fail(error, "option '" + std::string(rule->name) + "' needs a value");
        uint64_t number = 0;
        if (rule->kind == OptionKind::kNumber &&
            !parse_number(value, rule->min, rule->max, &number))
            return fail(error, std::string(rule->name) + " takes " + range_text(*rule) + ", not '" +
                                   value + "'");
        parsed->options.emplace_back(rule->name, value);
    }
    if (parsed->operands.size() < minOperands) return fail(error, std::string("missing ") + operandName);
    return true;
}

int usage_error(const char *command, const std::string &message) {
    if (command) {
        fprintf(stderr, "vxio %s: %s\nTry 'vxio %s --help'.\n", command, message.c_str(), command);
    } else {
        fprintf(stderr, "vxio: %s\nTry 'vxio --help'.\n", message.c_str());
    }
    return 2;
}

int run_options(const char *command, const char *usage, int argc, char **argv,
                const std::vector<OptionRule> &rules, const char *operandName,
                size_t minOperands, size_t maxOperands, ParsedArgs *parsed) {
    return run_options(command, usage, std::vector<std::string>(argv + 1, argv + argc), rules,
                       operandName, minOperands, maxOperands, parsed);
}

int run_options(const char *command, const char *usage, const std::vector<std::string> &args,
                const std::vector<OptionRule> &rules, const char *operandName,
                size_t minOperands, size_t maxOperands, ParsedArgs *parsed) {
    std::string error;
    if (!parse_arguments(args, rules, operandName, minOperands, maxOperands, parsed, &error))
        return usage_error(command, error);
    if (parsed->help) {
        fputs(usage, stdout);
        return 0;
    }
    return -1;
}

}  // namespace vxio_tool
