// Rules and replies as JSON, in protobuf's canonical JSON mapping with the schema's
// field and enum names ("rule_index", "ACTION_DENY"; lowerCamelCase is read too).
// Parsing reports the field and the reason; nothing here does I/O.
#pragma once

#include <string>

#include "VelaFwMsg.pb.h"

namespace qvctl {

// One FwRule from a JSON object. False with the reason in `error`.
bool ParseRuleJson(const std::string& json, qor::vela::FwRule* rule, std::string* error);

// A rule list from a JSON array of {"order": N, "rule": {...}}. False with the reason.
bool ParseRuleListJson(const std::string& json, qor::vela::FwRuleInfoList* list,
                       std::string* error);

// Any message as one line of JSON with the schema's names.
std::string MessageToJson(const google::protobuf::Message& message);

}  // namespace qvctl
