#include "ipfwsim/OptionValues.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>

#include "ipfwsim/Inet.h"

namespace ipfwsim {

long long atoiSaturating(const std::string& text) {
    long long value = std::strtoll(text.c_str(), nullptr, 10);
    return std::clamp<long long>(value, INT_MIN, INT_MAX);
}

Status parseFlagList(const std::string& text, const KeywordList& table, uint32_t& bits) {
    uint32_t set = 0;
    uint32_t clear = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        bool negate = text[pos] == '!';
        if (negate) {
            ++pos;
        }
        size_t comma = text.find(',', pos);
        std::string name =
            text.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
        int value = lookupKeyword(table, name);
        if (value <= 0) {
            return Status::failure(kExitDataErr, "invalid flag " + name);
        }
        (negate ? clear : set) |= static_cast<uint32_t>(value);
        if (comma == std::string::npos) {
            break;
        }
        pos = comma + 1;
    }
    bits = (set & 0xff) | ((clear & 0xff) << 8);
    return Status::success();
}

Status parseIcmpTypes(const std::string& text, uint32_t& bits) {
    bits = 0;
    const char* cursor = text.c_str();
    while (*cursor != '\0') {
        if (*cursor == ',') {
            ++cursor;
        }
        char* end = nullptr;
        // The type is stored in a byte, so 256 wraps to 0 as it does in the real command.
        auto type = static_cast<uint8_t>(std::strtoul(cursor, &end, 0));
        cursor = end;
        if (*cursor != ',' && *cursor != '\0') {
            return Status::failure(kExitDataErr, "invalid ICMP type");
        }
        if (type > 31) {
            return Status::failure(kExitDataErr, "ICMP type out of range");
        }
        bits |= 1u << type;
    }
    return Status::success();
}

Status parseInterface(const std::string& text, InterfaceRef& iface) {
    constexpr size_t kInterfaceNameMax = 15;
    if (text.empty() || std::isdigit(static_cast<unsigned char>(text[0])) == 0) {
        iface.name = text.substr(0, kInterfaceNameMax);
        return Status::success();
    }
    if (!parseInetAton(text, iface.address)) {
        return Status::failure(kExitDataErr, "bad ip address ``" + text + "''");
    }
    return Status::success();
}

}  // namespace ipfwsim
