#include "ipfwsim/Sysctl.h"

#include <cctype>
#include <cstdlib>

#include "ipfwsim/CommandLine.h"
#include "ipfwsim/FirewallSwitches.h"

namespace ipfwsim {
namespace {

constexpr int kSysctlFailure = 1;  // sysctl(8) exits 1 whatever went wrong

constexpr const char* kUsage =
    "usage: sysctl [-bdehNnoqx] name[=value] ...\n"
    "       sysctl [-bdehNnoqx] -a\n";

Status failure(const std::string& message) {
    return Status::failure(kSysctlFailure, message);
}

Status usageFailure(const std::string& message) {
    return Status::failure(kExitUsage, message);
}

struct SysctlOid {
    const char* name;
    Status (*read)(StateStore& store, int& value);
    Status (*write)(StateStore& store, int value);
};

Status readVerboseOid(StateStore& store, int& value) {
    bool verbose = false;
    Status status = readVerbose(store, verbose);
    value = verbose ? 1 : 0;
    return status;
}

// The state keeps a switch, so any non-zero value reads back as 1.
Status writeVerboseOid(StateStore& store, int value) {
    return writeVerbose(store, value != 0);
}

const SysctlOid kOids[] = {{"net.inet.ip.fw.verbose", readVerboseOid, writeVerboseOid}};

const SysctlOid* findOid(const std::string& name) {
    for (const SysctlOid& oid : kOids) {
        if (name == oid.name) {
            return &oid;
        }
    }
    return nullptr;
}

Status applyOption(char letter, SysctlOptions& options) {
    switch (letter) {
        case 'n':
            options.valueOnly = true;
            return Status::success();
        case 'N':
            options.nameOnly = true;
            return Status::success();
        case 'e':
            options.equalsSign = true;
            return Status::success();
        case 'q':
            options.quiet = true;
            return Status::success();
        case 'h':  // thousands separators, -o and -x opaque dumps: no effect on 0 and 1
        case 'o':
        case 'x':
        case 'w':  // accepted and ignored by the real command too
            return Status::success();
        case 'a':
        case 'A':
        case 'X':
        case 'b':
        case 'd':
            return failure(std::string("option -") + letter + ": not supported by the simulator");
        default:
            return usageFailure(std::string("illegal option -- ") + letter);
    }
}

// One value as show_var() in sysctl.c prints it.
std::string showValue(const std::string& name, int value, const SysctlOptions& options) {
    if (options.nameOnly) {
        return name;
    }
    if (options.valueOnly) {
        return std::to_string(value);
    }
    return name + (options.equalsSign ? "=" : ": ") + std::to_string(value);
}

}  // namespace

Status SysctlLine::parse(const std::vector<std::string>& arguments, SysctlLine& line) {
    line = SysctlLine{};
    size_t pos = 0;
    Status status = parseLeadingOptions(
        arguments, pos, [&line](char letter) { return applyOption(letter, line.options); });
    if (!status.ok()) {
        return status;
    }
    line.operands.assign(arguments.begin() + static_cast<long>(pos), arguments.end());
    if (line.operands.empty() || (line.options.nameOnly && line.options.valueOnly)) {
        return usageFailure("");
    }
    return Status::success();
}

SysctlOperand SysctlOperand::split(const std::string& text) {
    SysctlOperand operand;
    const size_t equals = text.find('=');
    operand.name = text.substr(0, equals);
    if (equals != std::string::npos) {
        size_t start = equals + 1;
        while (start < text.size() && std::isspace(static_cast<unsigned char>(text[start]))) {
            ++start;
        }
        operand.assigns = true;
        operand.value = text.substr(start);
    }
    return operand;
}

Status parseSysctlInteger(const std::string& text, int& value) {
    if (text.empty()) {
        return failure("empty numeric value");
    }
    char* end = nullptr;
    const long parsed = std::strtol(text.c_str(), &end, 0);
    if (end == text.c_str() || *end != '\0') {
        return failure("invalid integer '" + text + "'");
    }
    value = static_cast<int>(parsed);
    return Status::success();
}

int Sysctl::run(const std::vector<std::string>& arguments) {
    SysctlLine line;
    Status status = SysctlLine::parse(arguments, line);
    for (size_t i = 0; status.ok() && i < line.operands.size(); ++i) {
        status = apply(line.operands[i], line.options);
        // The real command's standard output is unbuffered, so each line leaves before
        // a later operand's error.
        console_.flushOut();
    }
    return finish(status);
}

bool Sysctl::changesState(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        if (argument.find('=') != std::string::npos) {
            return true;
        }
    }
    return false;
}

Status Sysctl::apply(const std::string& text, const SysctlOptions& options) {
    const SysctlOperand operand = SysctlOperand::split(text);
    if (findOid(operand.name) == nullptr) {
        return failure(options.quiet ? "" : "unknown oid '" + operand.name + "'");
    }
    return operand.assigns ? assign(operand, options) : show(operand, options);
}

Status Sysctl::show(const SysctlOperand& operand, const SysctlOptions& options) {
    int value = 0;
    Status status = findOid(operand.name)->read(store_, value);
    if (status.ok()) {
        console_.out(showValue(operand.name, value, options) + "\n");
    }
    return status;
}

// Prints the old value, " -> ", and the value read back after the change.
Status Sysctl::assign(const SysctlOperand& operand, const SysctlOptions& options) {
    const SysctlOid& oid = *findOid(operand.name);
    int wanted = 0;
    int before = 0;
    int after = 0;
    Status status = parseSysctlInteger(operand.value, wanted);
    if (status.ok()) {
        status = oid.read(store_, before);
    }
    if (status.ok()) {
        status = oid.write(store_, wanted);
    }
    if (status.ok()) {
        status = oid.read(store_, after);
    }
    if (status.ok()) {
        SysctlOptions newValueOptions = options;
        newValueOptions.valueOnly = true;
        console_.out(showValue(operand.name, before, options) + " -> " +
                     showValue(operand.name, after, newValueOptions) + "\n");
    }
    return status;
}

int Sysctl::finish(const Status& status) {
    if (status.ok()) {
        return kExitOk;
    }
    if (!status.message.empty()) {
        console_.err("sysctl: " + status.message + "\n");
    }
    if (status.code == kExitUsage) {
        console_.err(kUsage);
    }
    return kSysctlFailure;
}

}  // namespace ipfwsim
