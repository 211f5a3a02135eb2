#include "MessageJson.h"

#include <google/protobuf/util/json_util.h>

namespace qvctl {

namespace {

using google::protobuf::Message;

// The JSON text, then the message's own rule: every required field of a present part.
bool ParseMessage(const std::string& json, Message* message, std::string* error) {
    google::protobuf::util::JsonParseOptions options;
    options.ignore_unknown_fields = false;
    auto status = google::protobuf::util::JsonStringToMessage(json, message, options);
    if (!status.ok()) {
        *error = "bad JSON for " + message->GetTypeName() + ": " + std::string(status.message());
        return false;
    }
    if (!message->IsInitialized()) {
        *error = "bad JSON for " + message->GetTypeName() +
                 ": missing required field(s): " + message->InitializationErrorString();
        return false;
    }
    return true;
}

bool StartsWith(const std::string& text, char wanted) {
    size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string::npos && text[first] == wanted;
}

}  // namespace

bool ParseRuleJson(const std::string& json, qor::vela::FwRule* rule, std::string* error) {
    if (!StartsWith(json, '{')) {
        *error = "a rule is a JSON object, e.g. {\"action\": \"ACTION_DENY\"}";
        return false;
    }
    return ParseMessage(json, rule, error);
}

bool ParseRuleListJson(const std::string& json, qor::vela::FwRuleInfoList* list,
                       std::string* error) {
    if (!StartsWith(json, '[')) {
        *error = "a rule list is a JSON array of {\"order\": N, \"rule\": {...}}";
        return false;
    }
    // The array is the list message's one field.
    return ParseMessage("{\"rules\":" + json + "}", list, error);
}

std::string MessageToJson(const google::protobuf::Message& message) {
    google::protobuf::util::JsonPrintOptions options;
    options.preserve_proto_field_names = true;
    std::string json;
    if (!google::protobuf::util::MessageToJsonString(message, &json, options).ok()) {
        return "{}";
    }
    return json;
}

}  // namespace qvctl
