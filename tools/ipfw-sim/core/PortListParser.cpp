#include "ipfwsim/PortListParser.h"

#include <cctype>
#include <cstdlib>

namespace ipfwsim {
namespace {

constexpr size_t kMaxInstructionWords = 63;

}  // namespace

// A port number (any base strtol accepts) or a service name, whose letters and
// digits may be escaped with a backslash. `end` is where the value stopped.
bool PortListParser::value(const std::string& text, size_t start, uint8_t protocol, size_t& end,
                           uint16_t& port) const {
    end = start;
    if (start >= text.size()) {
        return false;
    }
    if (std::isdigit(static_cast<unsigned char>(text[start])) != 0) {
        const char* begin = text.c_str() + start;
        char* stop = nullptr;
        port = static_cast<uint16_t>(std::strtol(begin, &stop, 0));
        end = start + static_cast<size_t>(stop - begin);
        return true;
    }
    size_t scan = start;
    std::string name;
    while (scan < text.size() &&
           (std::isalnum(static_cast<unsigned char>(text[scan])) != 0 || text[scan] == '\\')) {
        if (text[scan] == '\\' && scan + 1 < text.size()) {
            ++scan;
        }
        if (text[scan] != '\\') {
            name += text[scan];
        }
        ++scan;
    }
    std::string protocolName = protocol == 0 ? std::string() : names_.protocolName(protocol);
    if (!names_.serviceByName(name, protocolName, port)) {
        return false;
    }
    end = scan;
    return true;
}

Status PortListParser::parse(const std::string& text, uint8_t protocol, Match& match,
                             bool& valid) const {
    valid = false;
    size_t element = 0;
    size_t stop = 0;
    while (stop < text.size()) {
        PortRange range;
        if (!value(text, element, protocol, stop, range.low)) {
            return Status::success();
        }
        range.high = range.low;
        char sep = stop < text.size() ? text[stop] : '\0';
        if (sep == '-') {
            size_t second = stop + 1;
            if (!value(text, second, protocol, stop, range.high)) {
                return Status::success();
            }
            if (stop < text.size() && text[stop] != ',') {
                return Status::success();
            }
        } else if (sep != ',' && sep != '\0') {
            diagnostics_.warn(std::string("port list: invalid separator <") + sep + "> in <" +
                              text.substr(element) + ">");
            return Status::success();
        }
        match.ports.push_back(range);
        element = stop + 1;
        if (stop >= text.size()) {
            break;
        }
    }
    if (match.ports.empty()) {
        return Status::success();
    }
    if (match.ports.size() + 1 > kMaxInstructionWords) {
        return Status::failure(kExitDataErr, "too many ports/ranges\n");
    }
    valid = true;
    return Status::success();
}

}  // namespace ipfwsim
