// The keywords of the ipfw rule language for the enumerated values a rule carries.
// This is the only place where these keywords are spelled.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

class StringMap {
public:
    // The process-wide instance, built on first use and never freed.
    static StringMap* getObj();

    // Appends the keyword of `value` to `out` and returns 0; returns -1 and leaves `out`
    // untouched when the value has no keyword. Appending (not assigning) lets the rule
    // generator pass the rule text under construction itself.
    int32_t getString(ActionEnum value, std::string& out) const;
    int32_t getString(TcpFlagEnum value, std::string& out) const;
    int32_t getString(TcpOptionEnum value, std::string& out) const;
    int32_t getString(IpOptionEnum value, std::string& out) const;
    int32_t getString(IpTosOptEnum value, std::string& out) const;
    int32_t getString(ProtoValueEnum value, std::string& out) const;

private:
    StringMap();

    std::map<ActionEnum, std::string> m_actionMap;
    std::map<TcpFlagEnum, std::string> m_tcpFlagMap;
    std::map<TcpOptionEnum, std::string> m_tcpOptionMap;
    std::map<IpOptionEnum, std::string> m_ipOptionMap;
    std::map<IpTosOptEnum, std::string> m_ipTosMap;
    std::map<ProtoValueEnum, std::string> m_protoMap;

    static StringMap* m_pObj;
    static int32_t m_objNum;
};

}  // namespace vela
}  // namespace qor
