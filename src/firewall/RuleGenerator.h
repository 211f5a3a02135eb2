// Turns one FwRule into the body of an ipfw rule: the text that follows the rule and set
// numbers on the add command line. The action comes first, then one fragment per rule
// field in a fixed order; every fragment begins with its own blank.
//
// The text is run through /bin/sh by the rule set manager, so every piece of free text
// from the message (host names, interface names) is checked before it is appended.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

class RuleGenerator {
public:
    using GenFunc = int32_t (RuleGenerator::*)(const FwRule&, std::string&) const;

    // Fills the fragment table; the generator is read-only from then on, so any number of
    // threads may share it.
    RuleGenerator();
    virtual ~RuleGenerator() = default;

    // Appends the rule body to `out`. 0, or 20705 (action without keyword), 20702 (bad MAC
    // address) or 20706 (unsafe host or interface text); on failure `out` holds a partial
    // text that the caller discards.
    virtual int32_t CreateRule(const FwRule& rule, std::string& out) const;

    int32_t ParseOpt(const FwRule& rule, std::string& out) const;

    int32_t GenProto(const FwRule& rule, std::string& out) const;
    int32_t GenSrcIp(const FwRule& rule, std::string& out) const;
    int32_t GenDstIp(const FwRule& rule, std::string& out) const;
    int32_t GenSrcPort(const FwRule& rule, std::string& out) const;
    int32_t GenDstPort(const FwRule& rule, std::string& out) const;
    int32_t GenIcmpType(const FwRule& rule, std::string& out) const;
    int32_t GenTcpFlags(const FwRule& rule, std::string& out) const;
    int32_t GenTcpOptions(const FwRule& rule, std::string& out) const;
    int32_t GenIpOptions(const FwRule& rule, std::string& out) const;
    int32_t GenIpTos(const FwRule& rule, std::string& out) const;
    int32_t GenMacAddr(const FwRule& rule, std::string& out) const;
    int32_t GenDirection(const FwRule& rule, std::string& out) const;
    int32_t GenViaInterface(const FwRule& rule, std::string& out) const;
    int32_t GenKeepState(const FwRule& rule, std::string& out) const;

    int32_t GetIpAndMask(const FwIp& ip, std::string& out) const;
    int32_t FillPort(const FwPort& port, std::string& out) const;
    int32_t IntArray2String(const google::protobuf::RepeatedField<int>& values,
                            std::string& out) const;
    template <typename T>
    int32_t FillFlags(const google::protobuf::RepeatedPtrField<T>& list, const std::string& name,
                      std::string& out) const;
    int32_t VerifyMacAddr(const std::string& mac) const;
    int32_t FillMacAddr(const MacAddr& mac, std::string& out) const;

    // The characters a host or interface name may hold; nothing else reaches the shell.
    static bool IsSafeHostName(const std::string& host);
    static bool IsSafeInterfaceName(const std::string& device);

private:
    void InitFuncTab();

    std::vector<GenFunc> m_funcTab;
};

}  // namespace vela
}  // namespace qor
