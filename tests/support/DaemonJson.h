// What the end-to-end tests of qvfwd share beside their DaemonSandbox: qvfwctl run where it
// must succeed, its JSON read as protobuf's Value, and the rule numbers a listing gives.
// Header-only, for the test programs that link the full protobuf runtime.
#pragma once

#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DaemonSandbox.h"

namespace qvdaemontest {

inline google::protobuf::Value ParseJson(const std::string& text) {
    google::protobuf::Value value;
    EXPECT_TRUE(google::protobuf::util::JsonStringToMessage(text, &value).ok()) << text;
    return value;
}

// The field `name` of a JSON object, or a null value when it has none.
inline const google::protobuf::Value& Field(const google::protobuf::Value& object,
                                            const std::string& name) {
    static const google::protobuf::Value kMissing;
    auto found = object.struct_value().fields().find(name);
    return found == object.struct_value().fields().end() ? kMissing : found->second;
}

// Runs a qvfwctl line that must succeed and returns its standard output.
inline std::string Ctl(const DaemonSandbox& sandbox, const std::string& arguments,
                       const std::string& input = "") {
    const RunResult result = sandbox.Run("qvfwctl " + arguments, input);
    EXPECT_EQ(result.exitCode, 0) << "qvfwctl " << arguments << "\n" << result.err;
    return result.out;
}

// The rule numbers of `qvfwctl COMMAND --json` (list or list-exceptions), in listed
// order, of the rules whose ipfw text holds `part`.
inline std::vector<int> ListedNumbers(const DaemonSandbox& sandbox,
                                      const std::string& command = "list",
                                      const std::string& part = "") {
    std::vector<int> numbers;
    const google::protobuf::Value listing = ParseJson(Ctl(sandbox, command + " --json"));
    for (const google::protobuf::Value& rule : Field(listing, "rules").list_value().values()) {
        if (Field(rule, "ipfw").string_value().find(part) != std::string::npos) {
            numbers.push_back(static_cast<int>(Field(rule, "number").number_value()));
        }
    }
    return numbers;
}

}  // namespace qvdaemontest
