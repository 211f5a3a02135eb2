// qvfwctl's JSON rules and rule lists from arbitrary text. Whatever parses must come back
// unchanged through the tool's own JSON output, and must be a message the plug-in's
// handlers accept as complete.
#include <cstdint>
#include <string>

#include "FuzzWorld.h"
#include "MessageJson.h"

namespace {

template <typename T>
void CheckRoundTrip(const T& message, bool (*parse)(const std::string&, T*, std::string*)) {
    if (!message.IsInitialized()) {
        qvfuzz::Fail("parsed message is incomplete", message.ShortDebugString());
    }
    const std::string json = qvctl::MessageToJson(message);
    T again;
    std::string error;
    if (!parse(json, &again, &error) || again.SerializeAsString() != message.SerializeAsString()) {
        qvfuzz::Fail("written JSON does not read back the same", json + " " + error);
    }
}

// A list is written as the message {"rules": [...]}, the tool reads a bare array.
bool ParseListFromMessageJson(const std::string& json, qor::vela::FwRuleInfoList* list,
                              std::string* error) {
    const size_t open = json.find('[');
    const size_t close = json.rfind(']');
    if (open == std::string::npos || close == std::string::npos) {
        return qvctl::ParseRuleListJson("[]", list, error);
    }
    return qvctl::ParseRuleListJson(json.substr(open, close - open + 1), list, error);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error;
    qor::vela::FwRule rule;
    if (qvctl::ParseRuleJson(text, &rule, &error)) {
        CheckRoundTrip(rule, qvctl::ParseRuleJson);
    }
    qor::vela::FwRuleInfoList list;
    if (qvctl::ParseRuleListJson(text, &list, &error)) {
        CheckRoundTrip(list, ParseListFromMessageJson);
    }
    return 0;
}
