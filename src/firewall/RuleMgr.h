// One ipfw rule set: installs rules under rule numbers it allocates, deletes single rules
// or the whole set, flushes the firewall, and enables or disables the set. It talks to
// ipfw only through command lines run by its command runner. ipfw itself is the store of
// the installed rules; the caller keeps (and persists) the rule list.
//
// A set has no lock of its own: its owner holds one per set for a whole operation (the
// number allocation, the ipfw commands and the owner's update of its stored list), so that
// the stored list and the set agree after any interleaving of callers. The owner keeps the
// locks because the order they are taken in is checked by the compiler only between locks
// that are distinct members of one class; the locks of two sets of this one class would
// share a single declaration, and the check could not tell them apart.
#pragma once

#include <cstdint>
#include <string>

#include "CommandRunner.h"
#include "QvResult.h"
#include "RuleGenerator.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

class RuleMgr {
public:
    // The set `setNum`, whose rule numbers start at `startNum`. The generator and the
    // runner must outlive the manager.
    RuleMgr(const RuleGenerator& generator, CommandRunner& shell, int32_t startNum, int32_t setNum);
    RuleMgr(const RuleMgr&) = delete;
    RuleMgr& operator=(const RuleMgr&) = delete;

    int32_t setNum() const { return m_setNum; }

    // Deletes whatever an earlier run left in the set and re-installs `rules` under their
    // saved numbers; numbering goes on after the largest of them. Failures are logged.
    void Init(const FwRuleList& rules);

    // Allocates a number, writes it into the rule's rule_index and installs the rule.
    Result<> AddRule(FwRule& rule);
    // Installs the rule under `number` in this set: the generator's code when the rule
    // has no text, FW_ERR_RULE_REFUSED when ipfw refused it, QV_ERR_CMD when ipfw could
    // not be run.
    Result<> AddRulePriv(const FwRule& rule, int32_t number);

    // The commands below fail with FW_ERR_IPFW_PRINTED when ipfw complained, QV_ERR_CMD
    // when it could not be run.
    Result<> DeleteRule(unsigned int number);
    // Deletes this manager's own set; the argument is only logged.
    Result<> DeleteSet(unsigned int set);
    // Restarts numbering and deletes this manager's set.
    Result<> FlushVelaRules();
    // Restarts numbering and flushes every rule of ipfw, other sets included.
    Result<> FlushRules();
    Result<> Enable();
    Result<> Disable();
    // Numbering starts again at the first rule number.
    void ResetNumbering();

private:
    // The next free rule number (numbering moves on past it), or FW_ERR_NO_RULE_NUM when
    // a probe could not be run.
    Result<int32_t> GenNextRuleNum();
    Result<int32_t> GenNextRuleNumPriv(int32_t start);

    // Runs one command line: what it printed when output is expected or it printed
    // nothing; FW_ERR_IPFW_PRINTED when a command that should be quiet printed something;
    // QV_ERR_CMD when it could not be run.
    Result<std::string> DoCmd(const std::string& command, unsigned int timeout,
                              bool outputExpected);
    Result<> RunQuiet(const std::string& command, unsigned int timeout);

    // The number from which the next allocation starts probing.
    uint32_t m_nextNum;
    const int32_t m_setNum;
    const int32_t m_startNum;
    const RuleGenerator& m_generator;
    CommandRunner& m_shell;
};

}  // namespace vela
}  // namespace qor
