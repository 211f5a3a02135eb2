// Where a JSON argument comes from: the argument itself when it starts like JSON ("{" or
// "["), standard input for "-", otherwise the file it names.
#pragma once

#include <stdio.h>

#include <string>

namespace qvctl {

// False with the reason in `error` when the file or standard input cannot be read.
bool ReadInputText(const std::string& argument, FILE* standardInput, std::string* text,
                   std::string* error);

}  // namespace qvctl
