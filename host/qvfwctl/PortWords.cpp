#include "PortWords.h"

#include <vector>

#include "CtlArguments.h"

namespace qvctl {

namespace {

constexpr unsigned int kHighestPort = 65535;

std::vector<std::string> SplitCommas(const std::string& word) {
    std::vector<std::string> entries;
    size_t start = 0;
    while (true) {
        size_t comma = word.find(',', start);
        entries.push_back(word.substr(start, comma - start));
        if (comma == std::string::npos) {
            return entries;
        }
        start = comma + 1;
    }
}

bool ReadPortNumber(const std::string& text, unsigned int* port) {
    return ParseUnsigned(text, port) && *port <= kHighestPort;
}

bool ReadPortEntry(const std::string& entry, qor::vela::Port* port) {
    size_t dash = entry.find('-');
    unsigned int from = 0;
    unsigned int to = 0;
    if (dash == std::string::npos) {
        if (!ReadPortNumber(entry, &from)) {
            return false;
        }
        port->set_use_range(false);
        port->set_port(from);
        return true;
    }
    if (!ReadPortNumber(entry.substr(0, dash), &from) ||
        !ReadPortNumber(entry.substr(dash + 1), &to)) {
        return false;
    }
    port->set_use_range(true);
    port->mutable_port_range()->set_from(from);
    port->mutable_port_range()->set_to(to);
    return true;
}

}  // namespace

bool ReadPortList(const std::string& word, qor::vela::FwPort* port, std::string* expected) {
    if (word == "any") {
        port->set_port_type(qor::vela::PORT_ANY);
        return true;
    }
    port->set_port_type(qor::vela::PORT_LIST);
    for (const std::string& entry : SplitCommas(word)) {
        if (!ReadPortEntry(entry, port->add_ports())) {
            *expected =
                "any, or ports (0 to 65535) and ranges FROM-TO joined by commas, "
                "instead of '" +
                entry + "'";
            return false;
        }
    }
    return true;
}

bool ReadIcmpTypes(const std::string& word, qor::vela::FwRule* rule, std::string* expected) {
    for (const std::string& entry : SplitCommas(word)) {
        unsigned int type = 0;
        if (!ParseUnsigned(entry, &type) ||
            !qor::vela::IcmpTypeEnum_IsValid(static_cast<int>(type))) {
            *expected = "ICMP type numbers (0, 3, 4, 5, 8 to 18) joined by commas, instead of '" +
                        entry + "'";
            return false;
        }
        rule->add_icmp_type(static_cast<qor::vela::IcmpTypeEnum>(type));
    }
    return true;
}

}  // namespace qvctl
