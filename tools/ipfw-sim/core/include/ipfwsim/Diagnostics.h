#pragma once

#include <string>
#include <vector>

namespace ipfwsim {

// Warnings that the real command prints to standard error while it carries on
// (abbreviated keywords, bad port separators). Each entry is the text after "ipfw: ".
struct Diagnostics {
    std::vector<std::string> warnings;

    void warn(std::string text) { warnings.push_back(std::move(text)); }
};

}  // namespace ipfwsim
