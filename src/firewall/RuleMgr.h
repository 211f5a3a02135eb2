// One ipfw rule set: installs rules under rule numbers it allocates, deletes single rules
// or the whole set, flushes the firewall, and enables or disables the set. It talks to
// ipfw only through command lines run by QvSystem. ipfw itself is the store of the
// installed rules; the caller keeps (and persists) the rule list.
#pragma once

#include <cstdint>
#include <string>

#include "QvLock.h"
#include "RuleGenerator.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

class RuleMgr {
public:
    RuleMgr();

    // Takes over `set`, deletes whatever an earlier run left in it and re-installs
    // `rules` under their saved numbers. Always 0; failures are logged.
    int32_t Init(int start, int set, RuleGenerator* generator, FwRuleList& rules);

    // Allocates a number, writes it into the rule's rule_index and installs the rule.
    int32_t AddRule(FwRule& rule);
    int32_t AddRulePriv(const FwRule& rule, int number, int set);

    // The next free rule number, -1 when a probe could not be run.
    int32_t GenNextRuleNum();
    int32_t GenNextRuleNumPriv(int start);

    int32_t DeleteRule(unsigned int number);
    // Deletes this manager's own set; the argument is only logged.
    int32_t DeleteSet(unsigned int set);
    // Restarts numbering and deletes this manager's set.
    int32_t FlushVelaRules();
    // Restarts numbering and flushes every rule of ipfw, other sets included.
    int32_t FlushRules();
    int32_t Enable();
    int32_t Disable();

    // Runs one command line. 0; -2 when a command that should be quiet printed
    // something (appended to `output`); 20016 when it could not be run.
    int32_t DoCmd(const std::string& command, int timeout, std::string& output,
                  bool outputExpected);

    // Guards rule-number allocation only.
    Mutex m_mutex;
    // The number from which the next allocation starts probing.
    uint32_t m_nextNum;
    // The ipfw set this manager owns.
    int32_t m_setNum;
    // The first rule number, and the value m_nextNum restarts from.
    int32_t m_startNum;
    RuleGenerator* m_pGenerator;  // not owned
};

}  // namespace vela
}  // namespace qor
