// Whatever qvfwctl's reader accepts as a rule in words, the plug-in's generator must
// write, and that text must read back into the very same message.
#include <cstdint>
#include <string>

#include "FuzzWorld.h"
#include "RuleFieldsReader.h"
#include "RuleGenerator.h"
#include "RuleReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const qor::vela::RuleGenerator generator;
    const std::string typed(reinterpret_cast<const char*>(data), size);
    qor::vela::FwRule rule;
    if (!qvctl::ReadRuleText(typed, &rule).ok) {
        return 0;
    }
    std::string text;
    if (generator.CreateRule(qor::vela::ReadRuleFields(rule), text) != 0) {
        qvfuzz::Fail("read but not written", typed);
    }
    qor::vela::FwRule again;
    qvctl::ReadResult reread = qvctl::ReadRuleText(text, &again);
    if (!reread.ok || again.SerializeAsString() != rule.SerializeAsString()) {
        qvfuzz::Fail("written text does not read back the same",
                     typed + " -> " + text + ": " + reread.Describe());
    }
    return 0;
}
