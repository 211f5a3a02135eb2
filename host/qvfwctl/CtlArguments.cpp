#include "CtlArguments.h"

#include <limits.h>
#include <stdlib.h>

#include "DurationWords.h"
#include "QvControl.h"

namespace qvctl {

namespace {

bool IsOption(const std::string& argument) {
    return argument.size() > 1 && argument[0] == '-' && argument != "-";
}

bool TakeValue(const std::vector<std::string>& arguments, size_t* i, std::string* value,
               std::string* error) {
    const std::string& argument = arguments[*i];
    size_t equals = argument.find('=');
    if (equals != std::string::npos) {
        *value = argument.substr(equals + 1);
        return true;
    }
    if (*i + 1 >= arguments.size()) {
        *error = argument + " needs a value";
        return false;
    }
    *value = arguments[++*i];
    return true;
}

bool TakeDuration(const std::vector<std::string>& arguments, size_t* i, const std::string& name,
                  int64_t* seconds, std::string* error) {
    std::string value;
    if (!TakeValue(arguments, i, &value, error)) {
        return false;
    }
    if (!ParseDuration(value, seconds)) {
        *error = name + " needs a duration such as 90s, 15m, 2h or 1d (at most 366d), not '" +
                 value + "'";
        return false;
    }
    return true;
}

bool TakeOption(const std::vector<std::string>& arguments, size_t* i, CtlArguments* parsed,
                std::string* error) {
    const std::string argument = arguments[*i];
    const std::string name = argument.substr(0, argument.find('='));
    if (name == "--json") {
        parsed->json = true;
    } else if (name == "--help" || name == "-h") {
        parsed->help = true;
    } else if (name == "--all") {
        parsed->all = true;
    } else if (name == "--exceptions") {
        parsed->exceptions = true;
    } else if (name == "--dry-run") {
        parsed->dryRun = true;
    } else if (name == "--for") {
        return TakeDuration(arguments, i, name, &parsed->forSeconds, error);
    } else if (name == "--confirm") {
        return TakeDuration(arguments, i, name, &parsed->confirmSeconds, error);
    } else if (name == "--control") {
        return TakeValue(arguments, i, &parsed->controlSocket, error);
    } else if (name == "--count" || name == "-n") {
        std::string value;
        unsigned int count = 0;
        if (!TakeValue(arguments, i, &value, error)) {
            return false;
        }
        if (!ParseUnsigned(value, &count)) {
            *error = name + " needs a number, not '" + value + "'";
            return false;
        }
        parsed->count = static_cast<long>(count);
    } else {
        *error = "unknown option " + argument;
        return false;
    }
    return true;
}

}  // namespace

bool CheckOptionScope(const CtlArguments& parsed, std::string* error) {
    const struct {
        const char* option;
        bool given;
        std::vector<std::string> commands;
    } scopes[] = {
        {"--for", parsed.forSeconds > 0, {"add", "add-exception", "add-rules"}},
        {"--confirm", parsed.confirmSeconds > 0, {"apply"}},
        {"--exceptions", parsed.exceptions, {"apply"}},
        {"--dry-run", parsed.dryRun, {"apply"}},
    };
    for (const auto& scope : scopes) {
        bool fits = false;
        for (const std::string& command : scope.commands) {
            fits = fits || command == parsed.command;
        }
        if (scope.given && !fits) {
            *error = std::string(scope.option) + " does not apply to " + parsed.command;
            return false;
        }
    }
    if (parsed.dryRun && parsed.confirmSeconds > 0) {
        *error = "--dry-run changes nothing, so there is nothing to --confirm";
        return false;
    }
    return true;
}

bool ParseUnsigned(const std::string& text, unsigned int* value) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos ||
        text.size() > 10) {
        return false;
    }
    unsigned long long number = strtoull(text.c_str(), nullptr, 10);
    if (number > UINT_MAX) {
        return false;
    }
    *value = static_cast<unsigned int>(number);
    return true;
}

bool ParseCtlArguments(const std::vector<std::string>& arguments, const char* controlEnv,
                       CtlArguments* parsed, std::string* error) {
    parsed->controlSocket =
        controlEnv != nullptr && *controlEnv != '\0' ? controlEnv : kDefaultControlSocket;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (IsOption(argument)) {
            if (!TakeOption(arguments, &i, parsed, error)) {
                return false;
            }
        } else if (parsed->command.empty()) {
            parsed->command = argument;
        } else {
            parsed->positional.push_back(argument);
        }
    }
    return true;
}

}  // namespace qvctl
