// Turns one firewall rule into the body of an ipfw rule: the text that follows the rule
// and set numbers on the add command line. The action comes first, then one fragment per
// rule field in a fixed order; every fragment begins with its own blank.
//
// The text is run through /bin/sh by the rule set manager, so every piece of free text
// from the message (host names, interface names) is checked before it is appended.
//
// The rule comes as RuleFields; RuleFieldsReader.h reads a FwRule message into them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "RuleFields.h"
#include "RuleTextLog.h"

namespace qor {
namespace vela {

class RuleGenerator {
public:
    using GenFunc = int32_t (RuleGenerator::*)(const RuleFields&, std::string&) const;

    // Fills the fragment table; the generator is read-only from then on, so any number of
    // threads may share it. Refusals and the finished text go to `log` when there is one;
    // it must outlive the generator.
    explicit RuleGenerator(const RuleTextLog* log = nullptr);
    virtual ~RuleGenerator() = default;

    // Appends the rule body to `out`. 0, or FW_ERR_ACTION (action without keyword), FW_ERR_MAC (bad
    // MAC address) or FW_ERR_UNSAFE_TEXT (unsafe host or interface text); on failure `out` holds a
    // partial text that the caller discards.
    virtual int32_t CreateRule(const RuleFields& rule, std::string& out) const;

    int32_t ParseOpt(const RuleFields& rule, std::string& out) const;

    int32_t GenProto(const RuleFields& rule, std::string& out) const;
    int32_t GenSrcIp(const RuleFields& rule, std::string& out) const;
    int32_t GenDstIp(const RuleFields& rule, std::string& out) const;
    int32_t GenSrcPort(const RuleFields& rule, std::string& out) const;
    int32_t GenDstPort(const RuleFields& rule, std::string& out) const;
    int32_t GenIcmpType(const RuleFields& rule, std::string& out) const;
    int32_t GenTcpFlags(const RuleFields& rule, std::string& out) const;
    int32_t GenTcpOptions(const RuleFields& rule, std::string& out) const;
    int32_t GenIpOptions(const RuleFields& rule, std::string& out) const;
    int32_t GenIpTos(const RuleFields& rule, std::string& out) const;
    int32_t GenMacAddr(const RuleFields& rule, std::string& out) const;
    int32_t GenDirection(const RuleFields& rule, std::string& out) const;
    int32_t GenViaInterface(const RuleFields& rule, std::string& out) const;
    int32_t GenKeepState(const RuleFields& rule, std::string& out) const;

    int32_t GetIpAndMask(const RuleFields::Addresses& ip, std::string& out) const;
    int32_t FillPort(const RuleFields::Ports& port, std::string& out) const;
    int32_t IntArray2String(const std::vector<int>& values, std::string& out) const;
    template <typename Enum>
    int32_t FillFlags(const std::vector<RuleFields::Flag<Enum>>& list, const std::string& name,
                      std::string& out) const;
    int32_t VerifyMacAddr(const std::string& mac) const;
    int32_t FillMacAddr(const RuleFields::Mac& mac, std::string& out) const;

    // The characters a host or interface name may hold; nothing else reaches the shell.
    static bool IsSafeHostName(const std::string& host);
    static bool IsSafeInterfaceName(const std::string& device);

private:
    void InitFuncTab();
    bool LogEnabled(int level) const;

    const RuleTextLog* m_log;
    std::vector<GenFunc> m_funcTab;
};

}  // namespace vela
}  // namespace qor
