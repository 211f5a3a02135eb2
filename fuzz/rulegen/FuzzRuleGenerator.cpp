// Any bytes that parse as a rule must yield rule text made only of characters that mean
// nothing to /bin/sh, with a backslash only ever in front of "!". The text is what the
// rule set manager hands to the shell.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "RuleGenerator.h"

namespace {

bool isShellInert(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
        return true;
    }
    switch (c) {
        case ' ':
        case '.':
        case ',':
        case '/':
        case ':':
        case '-':
        case '_':
        case '+':
        case '*':  // allowed in interface names (ipfw wildcards)
            return true;
        default:
            return false;
    }
}

void checkText(const std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\\' && i + 1 < text.size() && text[i + 1] == '!') {
            ++i;
            continue;
        }
        if (!isShellInert(c)) {
            std::fprintf(stderr, "unsafe character 0x%02x at %zu in rule text: %s\n",
                         static_cast<unsigned char>(c), i, text.c_str());
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static qor::vela::RuleGenerator* generator = [] {
        auto* g = new qor::vela::RuleGenerator();
        g->InitFuncTab();
        return g;
    }();
    qor::vela::FwRule rule;
    rule.ParsePartialFromArray(data, static_cast<int>(size));
    std::string text;
    if (generator->CreateRule(rule, text) == 0) {
        checkText(text);
    }
    return 0;
}
