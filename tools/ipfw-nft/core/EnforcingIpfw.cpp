#include "ipfwnft/EnforcingIpfw.h"

#include <cstdio>

#include "ipfwnft/RuleCompiler.h"
#include "ipfwnft/TableCompiler.h"
#include "ipfwnft/TableLayout.h"
#include "ipfwnft/UndoableStore.h"
#include "ipfwsim/CommandLine.h"
#include "ipfwsim/DeleteCommand.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/KeywordMatch.h"
#include "ipfwsim/RuleParser.h"
#include "ipfwsim/Simulator.h"

namespace ipfwnft {
namespace {

using ipfwsim::Status;

bool verbIs(const std::vector<std::string>& words, size_t at, const char* keyword) {
    ipfwsim::Diagnostics ignored;
    return words.size() > at && ipfwsim::matchesAbbreviated(words[at], keyword, ignored);
}

uint32_t nextGeneration(uint32_t generation) {
    const uint32_t next = generation + 1;
    return next == 0 || next == EnforcingIpfw::kPendingGeneration ? 1 : next;
}

std::string generationDigits(uint32_t generation) {
    char text[16];
    std::snprintf(text, sizeof(text), "%010u", generation);
    return text;
}

}  // namespace

EnforcingIpfw::EnforcingIpfw(ipfwsim::Environment& env, ipfwsim::StateStore& store,
                             ipfwsim::Console& console, KernelTable& table)
    : env_(env), store_(store), console_(console), table_(table) {}

bool EnforcingIpfw::reprograms(const std::vector<std::string>& arguments,
                               const ReadCommand& command) {
    if (!ipfwsim::Simulator::changesState(arguments)) {
        return false;
    }
    for (const char* verb : {"add", "delete", "flush", "set"}) {
        if (verbIs(command.words, 0, verb)) {
            return true;
        }
    }
    return false;
}

int EnforcingIpfw::simulate(const std::vector<std::string>& arguments) {
    return ipfwsim::Simulator(env_, store_, console_).run(arguments);
}

EnforcingIpfw::ReadCommand EnforcingIpfw::read(const std::vector<std::string>& arguments) const {
    ReadCommand command;
    ipfwsim::CommandLine line;
    if (!ipfwsim::CommandLine::parse(arguments, line).ok()) {
        return command;
    }
    command.words = std::move(line.words);
    if (verbIs(command.words, 0, "add")) {
        ipfwsim::Diagnostics ignored;
        const std::vector<std::string> body(command.words.begin() + 1, command.words.end());
        command.ruleRead = ipfwsim::RuleParser(env_.names(), ignored)
                               .parse(body, command.rule, command.number)
                               .ok();
    }
    return command;
}

int EnforcingIpfw::run(const std::vector<std::string>& arguments) {
    const ReadCommand command = read(arguments);
    Status status = refuseUnenforceable(command);
    if (!status.ok()) {
        console_.err("ipfw: " + status.message + "\n");
        return status.code;
    }
    uint32_t generation = 0;
    if (!reprograms(arguments, command) || !readGeneration(generation).ok()) {
        return simulate(arguments);  // the simulator reports a damaged state itself
    }
    const bool marked = generation != 0 && generation != kPendingGeneration;
    if (marked) {
        status = writeGeneration(kPendingGeneration);
    }
    UndoableStore recording(store_);
    const int result = status.ok() ? ipfwsim::Simulator(env_, recording, console_).run(arguments)
                                   : simulate(arguments);
    bool changed = false;
    if (status.ok()) {
        status = recording.changed(changed);
    }
    if (!status.ok() || !changed) {
        // Unread, a change keeps the pending mark, and the next command rebuilds.
        if (marked && status.ok()) {
            (void)writeGeneration(generation);
        }
        return result;
    }
    status = keepKernelInStep(command, recording, generation);
    if (!status.ok()) {
        console_.err("ipfw: " + status.message + "\n");
        // The kernel kept its table; the state goes back to what that table says.
        // When the kernel's answer was lost, the change may be in force: the pending mark
        // stays, so that the next command rebuilds the tables from the state.
        std::string before;
        Status restored = recording.before(before);
        if (restored.ok() && marked && status.code != ipfwsim::kExitIoErr) {
            before.replace(ipfwsim::StateFile::kKernelField, ipfwsim::StateFile::kOffsetDigits,
                           generationDigits(generation));
        }
        if (restored.ok()) {
            restored = store_.replace(before);
        }
        if (!restored.ok()) {
            console_.err("ipfw: the rule state could not be put back (" + restored.message +
                         "); it holds the change that the kernel refused\n");
        }
        return status.code;
    }
    return result;
}

// Only what the simulator would accept is checked here; its own refusals keep their words.
Status EnforcingIpfw::refuseUnenforceable(const ReadCommand& command) const {
    return command.ruleRead ? checkEnforceable(command.rule) : Status::success();
}

RuleChange EnforcingIpfw::describeChange(const ReadCommand& command,
                                         const ipfwsim::StateFile& after) const {
    RuleChange change;
    const std::vector<std::string>& words = command.words;
    if (verbIs(words, 0, "add")) {
        // An unnumbered rule went in after the last one.
        const uint32_t added =
            command.number != 0 ? static_cast<uint32_t>(command.number) : after.lastNumber();
        change.numbers.emplace_back(added, added);
    } else if (verbIs(words, 0, "delete") && !verbIs(words, 1, "set")) {
        for (const std::string& word : ipfwsim::deleteOperands({words.begin() + 1, words.end()})) {
            uint32_t low = 0;
            uint32_t high = 0;
            if (ipfwsim::userRuleRange(word, low, high)) {
                change.numbers.emplace_back(low, high);
            }
        }
    } else {
        change.whole = !verbIs(words, 0, "set") ||
                       !(verbIs(words, 1, "enable") || verbIs(words, 1, "disable"));
    }
    return change;
}

Status EnforcingIpfw::keepKernelInStep(const ReadCommand& command, UndoableStore& recording,
                                       uint32_t generation) {
    const uint32_t next = nextGeneration(generation);
    if (generation == 0 || generation == kPendingGeneration) {
        const Status status = rebuild(generation == kPendingGeneration, next);
        return status.ok() ? writeGeneration(next) : status;
    }
    std::string_view current;
    Status status = store_.read(current);
    // An add appends a line, a delete marks lines and a set switch rewrites one, all in
    // place: the state before them is a view of the state after it with the few bytes
    // they overwrote laid back, which the kernel's usual acceptance then costs nothing
    // more. Only a change that moved lines (a rewrite of the state) copies it.
    bool linesKept = false;
    size_t size = 0;
    std::vector<ipfwsim::StatePatch> patches;
    std::string copy;
    if (status.ok()) {
        status = recording.patchesBack(linesKept, size, patches);
    }
    if (status.ok() && !linesKept) {
        status = recording.before(copy);
    }
    ipfwsim::StateFile was =
        linesKept ? ipfwsim::StateFile(current.substr(0, size), patches) : ipfwsim::StateFile(copy);
    ipfwsim::StateFile is(current);
    if (status.ok()) {
        status = was.open();
    }
    if (status.ok()) {
        status = is.open();
    }
    std::string script;
    bool whole = false;
    if (status.ok()) {
        status = compileChange(was, is, describeChange(command, is), table_, script, whole);
    }
    if (status.ok() && whole) {
        status = rebuild(false, next);
    } else if (status.ok()) {
        status = table_.apply(generationProof(generation, shardsWithRules(was)) + script +
                              generationMark(next, shardsWithRules(is)));
        if (!status.ok() && status.code != ipfwsim::kExitIoErr) {
            // A table is not there as this state left it.
            status = rebuild(true, next);
        }
    }
    return status.ok() ? writeGeneration(next) : status;
}

Status EnforcingIpfw::restore(size_t& rules) {
    uint32_t generation = 0;
    Status status = readGeneration(generation);
    const uint32_t next = nextGeneration(generation);
    if (status.ok()) {
        status = rebuild(false, next, &rules);
    }
    return status.ok() ? writeGeneration(next) : status;
}

Status EnforcingIpfw::check(bool& intact) {
    intact = false;
    std::string_view content;
    Status status = store_.read(content);
    ipfwsim::StateFile file(content);
    if (status.ok()) {
        status = file.open();
    }
    const uint32_t generation =
        status.ok() && file.holdsKernelGeneration() ? file.kernelGeneration() : 0;
    if (generation != 0 && generation != kPendingGeneration) {
        const std::vector<uint32_t> shards = shardsWithRules(file);
        intact =
            table_.apply(generationProof(generation, shards) + generationMark(generation, shards))
                .ok();
    }
    return status;
}

Status EnforcingIpfw::rebuild(bool drifted, uint32_t generation, size_t* rules) {
    std::string_view content;
    ipfwsim::FirewallState state;
    Status status = store_.read(content);
    if (status.ok()) {
        status = ipfwsim::FirewallState::load(content, state);
    }
    std::string script;
    if (status.ok()) {
        status = compileTable(state, generation, script);
    }
    if (rules != nullptr) {
        *rules = state.rules().size();
    }
    if (status.ok()) {
        status = table_.apply(script);
    }
    if (status.ok() && drifted) {
        console_.err(
            "ipfw: the nftables tables were not as this rule state last left them; rebuilt "
            "them from the rule state\n");
    }
    return status;
}

// 0 when the state has no room for it.
Status EnforcingIpfw::readGeneration(uint32_t& generation) {
    std::string_view content;
    Status status = store_.read(content);
    ipfwsim::StateFile file(content);
    if (status.ok()) {
        status = file.open();
    }
    generation = status.ok() && file.holdsKernelGeneration() ? file.kernelGeneration() : 0;
    return status;
}

Status EnforcingIpfw::writeGeneration(uint32_t generation) {
    std::string_view content;
    Status status = store_.read(content);
    ipfwsim::StateFile file(content);
    if (status.ok()) {
        status = file.open();
    }
    if (!status.ok() || !file.holdsKernelGeneration()) {
        return status;  // a state of the first format has no room: the next command rebuilds
    }
    return store_.overwrite(ipfwsim::StateFile::kKernelField, generationDigits(generation));
}

}  // namespace ipfwnft
