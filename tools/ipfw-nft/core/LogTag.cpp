#include "ipfwnft/LogTag.h"

#include <sstream>

namespace ipfwnft {

std::string LogTag::format() const {
    return std::to_string(number) + " " + std::to_string(ordinal) + (outbound ? " out " : " in ") +
           action;
}

bool LogTag::parse(const std::string& prefix, LogTag& tag) {
    std::istringstream in(prefix);
    std::string direction;
    if (!(in >> tag.number >> tag.ordinal >> direction) ||
        (direction != "in" && direction != "out")) {
        return false;
    }
    tag.outbound = direction == "out";
    std::getline(in >> std::ws, tag.action);
    return !tag.action.empty();
}

}  // namespace ipfwnft
