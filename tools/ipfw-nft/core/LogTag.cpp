#include "ipfwnft/LogTag.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace ipfwnft {
namespace {

// The next word of `text`, taken off its front with the blanks before it.
std::string_view takeWord(std::string_view& text) {
    const size_t start = std::min(text.find_first_not_of(' '), text.size());
    text.remove_prefix(start);
    const size_t end = std::min(text.find(' '), text.size());
    std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

bool takeNumber(std::string_view& text, uint32_t& value) {
    const std::string_view word = takeWord(text);
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    return !word.empty() && error == std::errc() && end == word.data() + word.size();
}

}  // namespace

std::string LogTag::format() const {
    return std::to_string(number) + " " + std::to_string(ordinal) + (outbound ? " out " : " in ") +
           action;
}

// Read for every logged packet, so without streams.
bool LogTag::parse(const std::string& prefix, LogTag& tag) {
    std::string_view rest = prefix;
    if (!takeNumber(rest, tag.number) || !takeNumber(rest, tag.ordinal)) {
        return false;
    }
    const std::string_view direction = takeWord(rest);
    if (direction != "in" && direction != "out") {
        return false;
    }
    tag.outbound = direction == "out";
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    tag.action = std::string(rest);
    return !tag.action.empty();
}

}  // namespace ipfwnft
