// The event watcher's handling of the firewall log: arbitrary bytes read as the watcher
// reads them (fgets into a zeroed 4096-byte buffer), each piece parsed into an event
// record. A record must say what the line says: its detail is the rest of the line after
// "ipfw:" with the line's own end and one NUL, its rule number the one written there, and
// it must reach the host intact.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "FuzzWorld.h"
#include "FwLogParser.h"

namespace {

using qor::vela::EventLogItemFw;

void CheckEvent(const char* line, const EventLogItemFw& event) {
    const std::string& detail = event.detail();
    const size_t length = std::strlen(line);
    if (detail.empty() || detail.back() != '\0' || detail.size() > length + 1 ||
        std::memcmp(line + length - (detail.size() - 1), detail.data(), detail.size() - 1) != 0) {
        qvfuzz::Fail("detail is not the end of the line", line);
    }
    unsigned int number = 0;
    if (std::sscanf(detail.c_str(), "%u", &number) != 1) {
        number = 0;
    }
    if (static_cast<uint32_t>(event.rule_index()) != number || event.time() != 1234) {
        qvfuzz::Fail("rule number or time differ from the line", line);
    }
    EventLogItemFw received;
    if (!received.ParseFromString(event.SerializeAsString()) || received.detail() != detail ||
        received.rule_index() != event.rule_index()) {
        qvfuzz::Fail("record does not reach the host intact", line);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const qor::vela::FwLogParser parser;
    if (!parser.IsValid()) {
        qvfuzz::Fail("pattern did not compile", "");
    }
    if (size == 0) {
        return 0;
    }
    FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "r");
    if (file == nullptr) {
        return 0;
    }
    char line[4096];
    std::memset(line, 0, sizeof line);
    while (std::fgets(line, sizeof line, file) != nullptr) {
        EventLogItemFw event;
        if (parser.Parse(line, 1234, event)) {
            CheckEvent(line, event);
        }
        std::memset(line, 0, sizeof line);
    }
    std::fclose(file);
    return 0;
}
