// Builds the small JSON objects and arrays that qvfwctl prints around messages (which
// MessageJson prints itself) and that qvfwd's records are made of. Keys and values are
// added in order; no I/O.
#pragma once

#include <stdint.h>

#include <string>

namespace qvctl {

// A JSON string literal for `text`, quotes included.
std::string JsonQuote(const std::string& text);

class JsonObject {
public:
    JsonObject& Number(const std::string& key, int64_t value);
    JsonObject& Bool(const std::string& key, bool value);
    JsonObject& Text(const std::string& key, const std::string& value);
    // `json` must already be JSON (an object, array or literal).
    JsonObject& Raw(const std::string& key, const std::string& json);
    std::string str() const { return "{" + m_body + "}"; }

private:
    void Key(const std::string& key);
    std::string m_body;
};

class JsonArray {
public:
    JsonArray& Raw(const std::string& json);
    std::string str() const { return "[" + m_body + "]"; }

private:
    std::string m_body;
};

}  // namespace qvctl
