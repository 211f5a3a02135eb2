#include "EventRecord.h"

#include <time.h>

#include "JsonWriter.h"
#include "QvControlErrors.h"
#include "WallClock.h"

namespace qvfwd {

namespace {

using qvctl::JsonObject;

JsonObject Head(const char* type, int64_t micros) {
    JsonObject record;
    record.Text("type", type).Text("time", Rfc3339Micros(micros));
    return record;
}

void OptionalNumber(JsonObject& record, const char* key, const std::optional<uint32_t>& value) {
    if (value) {
        record.Number(key, *value);
    } else {
        record.Raw(key, "null");
    }
}

void OptionalText(JsonObject& record, const char* key, const std::string& value) {
    if (value.empty()) {
        record.Raw(key, "null");
    } else {
        record.Text(key, value);
    }
}

void Place(JsonObject& record, const std::optional<RulePlace>& place) {
    if (place) {
        record.Number("set", place->set).Text("list", place->list);
    } else {
        record.Raw("set", "null").Raw("list", "null");
    }
}

void Outcome(JsonObject& record, int32_t code) {
    record.Number("code", code).Text("result", qvctl::CodeMeaningOf(code));
}

}  // namespace

std::string Rfc3339Micros(int64_t micros) {
    int64_t seconds = micros / kMicrosPerSecond;
    int64_t fraction = micros % kMicrosPerSecond;
    if (fraction < 0) {
        fraction += kMicrosPerSecond;
        --seconds;
    }
    time_t when = static_cast<time_t>(seconds);
    struct tm utc {};
    char text[64] = "";
    if (gmtime_r(&when, &utc) != nullptr) {
        size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
        snprintf(text + length, sizeof text - length, ".%06lldZ", static_cast<long long>(fraction));
    }
    return text;
}

std::string PacketRecord(int64_t micros, const PacketLine& packet,
                         const std::optional<RulePlace>& place) {
    JsonObject record = Head("packet", micros);
    record.Number("rule", packet.rule);
    Place(record, place);
    record.Text("action", packet.action)
        .Text("protocol", packet.protocol)
        .Text("src", packet.source);
    OptionalNumber(record, "src_port", packet.sourcePort);
    record.Text("dst", packet.destination);
    OptionalNumber(record, "dst_port", packet.destinationPort);
    OptionalNumber(record, "icmp_type", packet.icmpType);
    OptionalNumber(record, "icmp_code", packet.icmpCode);
    OptionalText(record, "direction", packet.direction);
    OptionalText(record, "interface", packet.interface);
    return record.Text("line", packet.text).str();
}

std::string LogRecord(int64_t micros, const std::string& text) {
    return Head("log", micros).Text("line", text).str();
}

std::string ChangeRecord(int64_t micros, const ChangeFacts& change) {
    JsonObject record = Head("change", micros);
    record.Number("uid", change.uid).Number("pid", change.pid);
    OptionalText(record, "program", change.program);
    record.Text("command", change.command);
    if (change.ruleNumber) {
        record.Number("rule", *change.ruleNumber);
    } else {
        record.Raw("rule", "null");
    }
    record.Text("rule_text", change.ruleText);
    Outcome(record, change.code);
    return record.str();
}

std::string ExpiryRecord(int64_t micros, const ExpiryFacts& expiry) {
    JsonObject record = Head("expiry", micros);
    record.Number("rule", expiry.ruleNumber);
    Place(record, expiry.place);
    record.Text("rule_text", expiry.ruleText)
        .Text("deadline", Rfc3339Micros(expiry.deadlineMicros));
    Outcome(record, expiry.code);
    return record.str();
}

std::string SuppressedRecord(int64_t micros, int64_t ruleNumber, int64_t second, int64_t count) {
    return Head("suppressed", micros)
        .Number("rule", ruleNumber)
        .Text("second", Rfc3339Micros(second * kMicrosPerSecond))
        .Number("count", count)
        .str();
}

std::string RollbackRecord(int64_t micros, const std::string& list, int64_t rules, int32_t code) {
    JsonObject record = Head("rollback", micros);
    record.Text("list", list).Number("rules", rules);
    Outcome(record, code);
    return record.str();
}

}  // namespace qvfwd
