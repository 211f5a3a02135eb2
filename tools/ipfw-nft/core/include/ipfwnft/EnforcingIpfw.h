#pragma once

#include <string>
#include <vector>

#include "ipfwnft/ChangeCompiler.h"
#include "ipfwnft/KernelTable.h"
#include "ipfwnft/UndoableStore.h"
#include "ipfwsim/Console.h"
#include "ipfwsim/Environment.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/StateStore.h"

namespace ipfwnft {

// The simulator's ipfw command, unchanged in what it parses, stores, lists and prints,
// with the kernel's table kept in step: a rule nftables cannot enforce is refused before
// it is stored, and every change of the rules or sets reaches the table as one
// transaction that rewrites only the chains of the numbers it touched.
//
// The state's first line counts the changes the kernel took (0: the table was never
// built from it). It is marked pending before the state changes and counted on once the
// kernel took the change, and every table carries the same count (TableLayout.h,
// kGenerationSet), which each change proves in every table before it moves it on. A
// command that finds the mark (its predecessor was cut off between state and kernel) or
// whose change the tables cannot take (someone flushed the ruleset, deleted or wrote one
// of the tables) rebuilds the tables whole from the state, once, and says so. When the
// kernel refuses the rebuild too, the state goes back to what the tables hold.
class EnforcingIpfw {
public:
    EnforcingIpfw(ipfwsim::Environment& env, ipfwsim::StateStore& store, ipfwsim::Console& console,
                  KernelTable& table);

    // `arguments` excludes the program name. Returns the exit code.
    int run(const std::vector<std::string>& arguments);

    // Rebuilds the tables whole from the state and counts the change, as a command that
    // found them drifted does: for ipfw-enforcer, when someone else changed its tables.
    // The caller holds the state's lock. `rules` is the number of rules put back.
    ipfwsim::Status restore(size_t& rules);

    // Whether every table still carries the count of the state's first line, proved as a
    // change proves it, without changing anything. The caller holds the state's lock.
    ipfwsim::Status check(bool& intact);

    // What the count holds while a change is on the way to the kernel.
    static constexpr uint32_t kPendingGeneration = 0xffffffff;

private:
    // The command's words and, for an add, the rule it names, read once: refusing what
    // nftables cannot enforce and describing the change both need the rule, and reading
    // it looks names up in the system's databases.
    struct ReadCommand {
        std::vector<std::string> words;
        bool ruleRead = false;
        ipfwsim::Rule rule;
        uint64_t number = 0;
    };
    ReadCommand read(const std::vector<std::string>& arguments) const;
    // Whether the command can change which rules are enforced; its words as read once.
    static bool reprograms(const std::vector<std::string>& arguments, const ReadCommand& command);

    int simulate(const std::vector<std::string>& arguments);
    ipfwsim::Status refuseUnenforceable(const ReadCommand& command) const;
    RuleChange describeChange(const ReadCommand& command, const ipfwsim::StateFile& after) const;
    ipfwsim::Status keepKernelInStep(const ReadCommand& command, UndoableStore& recording,
                                     uint32_t generation);
    // The tables whole, carrying `generation`; `rules` (when given) the number of rules.
    ipfwsim::Status rebuild(bool drifted, uint32_t generation, size_t* rules = nullptr);
    ipfwsim::Status readGeneration(uint32_t& generation);
    ipfwsim::Status writeGeneration(uint32_t generation);

    ipfwsim::Environment& env_;
    ipfwsim::StateStore& store_;
    ipfwsim::Console& console_;
    KernelTable& table_;
};

}  // namespace ipfwnft
