#include "InputText.h"

#include <errno.h>
#include <string.h>

namespace qvctl {

namespace {

bool LooksLikeJson(const std::string& argument) {
    size_t first = argument.find_first_not_of(" \t\r\n");
    return first != std::string::npos && (argument[first] == '{' || argument[first] == '[');
}

bool ReadAll(FILE* in, std::string* text) {
    char chunk[4096];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, in)) > 0) {
        text->append(chunk, got);
    }
    return ferror(in) == 0;
}

}  // namespace

bool ReadInputText(const std::string& argument, FILE* standardInput, std::string* text,
                   std::string* error) {
    text->clear();
    if (LooksLikeJson(argument)) {
        *text = argument;
        return true;
    }
    if (argument == "-") {
        if (!ReadAll(standardInput, text)) {
            *error = "cannot read standard input";
            return false;
        }
        return true;
    }
    FILE* file = fopen(argument.c_str(), "rb");
    if (file == nullptr) {
        *error = "cannot read " + argument + ": " + strerror(errno);
        return false;
    }
    bool read = ReadAll(file, text);
    fclose(file);
    if (!read) {
        *error = "cannot read " + argument;
    }
    return read;
}

}  // namespace qvctl
