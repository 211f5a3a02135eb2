#include "ipfwsim/CommandLine.h"

#include <cstring>

namespace ipfwsim {
namespace {

constexpr const char* kBlanks = " \t\f\v\n\r";

std::vector<std::string> splitSingleArgument(const std::string& text) {
    std::string squeezed;
    bool copy = false;
    for (char c : text) {
        if (c == '#') {
            break;
        }
        if (copy) {
            squeezed += c;
            copy = std::strchr(",", c) == nullptr && std::strchr(kBlanks, c) == nullptr;
        } else {
            copy = std::strchr(kBlanks, c) == nullptr;
            if (copy) {
                squeezed += c;
            }
        }
    }
    if (!copy && !squeezed.empty()) {
        squeezed.pop_back();
    }
    std::vector<std::string> words;
    std::string word;
    for (char c : squeezed) {
        if (std::strchr(kBlanks, c) != nullptr) {
            words.push_back(word);
            word.clear();
        } else {
            word += c;
        }
    }
    if (!squeezed.empty()) {
        words.push_back(word);
    }
    return words;
}

std::vector<std::string> joinCommaWords(const std::vector<std::string>& arguments) {
    std::vector<std::string> words;
    std::string pending;
    for (size_t i = 0; i < arguments.size(); ++i) {
        pending += arguments[i];
        bool endsInComma = !arguments[i].empty() && arguments[i].back() == ',';
        if (!endsInComma || i + 1 == arguments.size()) {
            words.push_back(pending);
            pending.clear();
        }
    }
    return words;
}

Status applyOption(char letter, Options& options) {
    switch (letter) {
        case 'a':
            options.counters = true;
            return Status::success();
        case 'd':
            options.dynamic = true;
            return Status::success();
        case 'e':
            options.expired = true;
            return Status::success();
        case 'f':
            options.force = true;
            return Status::success();
        case 'h':
            options.help = true;
            return Status::success();
        case 'n':
            options.testOnly = true;
            return Status::success();
        case 'q':
            options.quiet = true;
            return Status::success();
        case 'S':
            options.sets = true;
            return Status::success();
        case 'b':
        case 'c':
        case 'D':
        case 'i':
        case 'N':
        case 'p':
        case 's':
        case 't':
        case 'T':
        case 'v':
            return Status::notModelled(std::string("option -") + letter);
        default:
            return Status::failure(kExitUsage, std::string("illegal option -- ") + letter);
    }
}

}  // namespace

Status CommandLine::parse(const std::vector<std::string>& arguments, CommandLine& line) {
    line = CommandLine{};
    std::vector<std::string> words =
        arguments.size() == 1 ? splitSingleArgument(arguments[0]) : joinCommaWords(arguments);
    size_t pos = 0;
    Status status = parseLeadingOptions(
        words, pos, [&line](char letter) { return applyOption(letter, line.options); });
    if (!status.ok()) {
        return status;
    }
    line.words.assign(words.begin() + static_cast<long>(pos), words.end());
    return Status::success();
}

}  // namespace ipfwsim
