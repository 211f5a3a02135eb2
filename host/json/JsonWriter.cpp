#include "JsonWriter.h"

#include <stdio.h>

namespace qvctl {

std::string JsonQuote(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

void JsonObject::Key(const std::string& key) {
    if (!m_body.empty()) {
        m_body += ",";
    }
    m_body += JsonQuote(key) + ":";
}

JsonObject& JsonObject::Number(const std::string& key, int64_t value) {
    Key(key);
    m_body += std::to_string(value);
    return *this;
}

JsonObject& JsonObject::Bool(const std::string& key, bool value) {
    Key(key);
    m_body += value ? "true" : "false";
    return *this;
}

JsonObject& JsonObject::Text(const std::string& key, const std::string& value) {
    Key(key);
    m_body += JsonQuote(value);
    return *this;
}

JsonObject& JsonObject::Raw(const std::string& key, const std::string& json) {
    Key(key);
    m_body += json;
    return *this;
}

JsonArray& JsonArray::Raw(const std::string& json) {
    if (!m_body.empty()) {
        m_body += ",";
    }
    m_body += json;
    return *this;
}

}  // namespace qvctl
