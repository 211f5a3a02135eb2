// Any bytes that parse as a rule must yield rule text made only of characters that mean
// nothing to /bin/sh (ShellInert.h). The text is what the rule set manager hands to the
// shell.
#include <cstdint>
#include <string>

#include "FuzzWorld.h"
#include "RuleFieldsReader.h"
#include "RuleGenerator.h"
#include "ShellInert.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const qor::vela::RuleGenerator generator;
    qor::vela::FwRule rule;
    rule.ParsePartialFromArray(data, static_cast<int>(size));
    std::string text;
    if (generator.CreateRule(qor::vela::ReadRuleFields(rule), text) != 0) {
        return 0;
    }
    const size_t at = qvfuzz::FirstShellActiveChar(text);
    if (at != std::string::npos) {
        qvfuzz::Fail("rule text the shell acts on", "at " + std::to_string(at) + ": " + text);
    }
    return 0;
}
