// The keywords of the ipfw rule language for the enumerated values a rule carries.
// This is the only place where these keywords are spelled.
//
// The enums are the schema's (VelaFwMsg.proto), declared here without their values so
// that the table serves the plug-in's lite classes and qvfwctl's full ones alike; the
// table is keyed by the schema's numbers, which are its wire format and never change.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace qor {
namespace vela {

enum ActionEnum : int;
enum TcpFlagEnum : int;
enum TcpOptionEnum : int;
enum IpOptionEnum : int;
enum IpTosOptEnum : int;
enum ProtoValueEnum : int;

class StringMap {
public:
    // The process-wide instance, built on first use and never freed.
    static const StringMap* getObj();

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
};

}  // namespace vela
}  // namespace qor
