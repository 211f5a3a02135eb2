#include "CtlArguments.h"

#include <limits.h>
#include <stdlib.h>

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
