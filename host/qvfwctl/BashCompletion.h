// qvfwctl's completion for bash, written from the command table, the options and the
// rule words, so that it knows every command the tool knows.
#pragma once

#include <string>

namespace qvctl {

std::string BashCompletionScript();

}  // namespace qvctl
