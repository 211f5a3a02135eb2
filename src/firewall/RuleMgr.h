// One ipfw rule set: installs rules under rule numbers it allocates, deletes single rules
// or the whole set, flushes the firewall, and enables or disables the set. It talks to
// ipfw only through command lines run by its command runner. ipfw itself is the store of
// the installed rules; the caller keeps (and persists) the rule list.
//
// The set's lock covers a whole operation of its owner: the number allocation, the ipfw
// commands and the owner's update of its stored list happen under it, so that the stored
// list and the set agree after any interleaving of callers. Every operation requires it.
#pragma once

#include <cstdint>
#include <string>

#include "CommandRunner.h"
#include "QvLock.h"
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

    Mutex& mutex() RETURN_CAPABILITY(m_mutex) { return m_mutex; }
    int32_t setNum() const { return m_setNum; }

    // Deletes whatever an earlier run left in the set and re-installs `rules` under their
    // saved numbers; numbering goes on after the largest of them. Failures are logged.
    void Init(const FwRuleList& rules) REQUIRES(m_mutex);

    // Allocates a number, writes it into the rule's rule_index and installs the rule.
    int32_t AddRule(FwRule& rule) REQUIRES(m_mutex);
    // Installs the rule under `number` in this set.
    int32_t AddRulePriv(const FwRule& rule, int32_t number) REQUIRES(m_mutex);

    int32_t DeleteRule(unsigned int number) REQUIRES(m_mutex);
    // Deletes this manager's own set; the argument is only logged.
    int32_t DeleteSet(unsigned int set) REQUIRES(m_mutex);
    // Restarts numbering and deletes this manager's set.
    int32_t FlushVelaRules() REQUIRES(m_mutex);
    // Restarts numbering and flushes every rule of ipfw, other sets included.
    int32_t FlushRules() REQUIRES(m_mutex);
    int32_t Enable() REQUIRES(m_mutex);
    int32_t Disable() REQUIRES(m_mutex);
    // Numbering starts again at the first rule number.
    void ResetNumbering() REQUIRES(m_mutex);

private:
    // The next free rule number (numbering moves on past it), or 20703 when a probe
    // could not be run.
    Result<int32_t> GenNextRuleNum() REQUIRES(m_mutex);
    Result<int32_t> GenNextRuleNumPriv(int32_t start) REQUIRES(m_mutex);

    // Runs one command line: what it printed when output is expected or it printed
    // nothing; -2 when a command that should be quiet printed something; 20016 when it
    // could not be run.
    Result<std::string> DoCmd(const std::string& command, unsigned int timeout, bool outputExpected)
        REQUIRES(m_mutex);
    // A quiet command's code.
    int32_t RunQuiet(const std::string& command, unsigned int timeout) REQUIRES(m_mutex);

    Mutex m_mutex;
    // The number from which the next allocation starts probing.
    uint32_t m_nextNum GUARDED_BY(m_mutex);
    const int32_t m_setNum;
    const int32_t m_startNum;
    const RuleGenerator& m_generator;
    CommandRunner& m_shell;
};

}  // namespace vela
}  // namespace qor
