#pragma once

#include <string>
#include <vector>

#include "ipfwsim/Console.h"
#include "ipfwsim/StateStore.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// The flags of FreeBSD's sysctl(8) that change what an integer oid prints.
struct SysctlOptions {
    bool valueOnly = false;   // -n
    bool nameOnly = false;    // -N
    bool equalsSign = false;  // -e: "name=value" rather than "name: value"
    bool quiet = false;       // -q: an unknown name fails without a message
};

// Options, then the operands "name" or "name=value". A failure with code kExitUsage
// means the real command would print its usage after the message.
struct SysctlLine {
    SysctlOptions options;
    std::vector<std::string> operands;

    static Status parse(const std::vector<std::string>& arguments, SysctlLine& line);
};

// "name=value" split at the first "=", blanks after it dropped, as sysctl(8) does.
struct SysctlOperand {
    std::string name;
    bool assigns = false;
    std::string value;

    static SysctlOperand split(const std::string& text);
};

// The value of an integer oid: whole text read as strtol(3) with base 0 reads it, then
// cut to an int as the real command casts it.
Status parseSysctlInteger(const std::string& text, int& value);

// sysctl(8) over the kernel variables the simulator models: net.inet.ip.fw.verbose.
// Every other name is unknown, as a kernel without them would answer.
class Sysctl {
public:
    Sysctl(StateStore& store, Console& console) : store_(store), console_(console) {}

    // `arguments` excludes the program name. Returns the exit code: 0, or 1 on any failure.
    int run(const std::vector<std::string>& arguments);

    // Only assignments change the state; reads can share it.
    static bool changesState(const std::vector<std::string>& arguments);

private:
    Status apply(const std::string& text, const SysctlOptions& options);
    Status assign(const SysctlOperand& operand, const SysctlOptions& options);
    Status show(const SysctlOperand& operand, const SysctlOptions& options);
    int finish(const Status& status);

    StateStore& store_;
    Console& console_;
};

}  // namespace ipfwsim
