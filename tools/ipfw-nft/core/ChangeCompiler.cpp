#include "ipfwnft/ChangeCompiler.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>
#include <string_view>
#include <unordered_map>

#include "ipfwnft/TableCompiler.h"
#include "ipfwnft/TableLayout.h"

namespace ipfwnft {
namespace {

using ipfwsim::Status;

std::string statement(const std::string& verb, uint32_t shard, const std::string& chain,
                      const std::string& rest = "") {
    return verb + " " + shardTable(shard) + " " + chain + (rest.empty() ? "" : " " + rest) + "\n";
}

// What a change does to one table that holds rules before and after it. Creations come
// first and deletions last, so that no jump ever names a chain that is not there.
struct ShardScript {
    // The touched blocks that gained their first rule, and those that lost their last.
    std::vector<uint32_t> came;
    std::vector<uint32_t> went;
    std::string created;
    std::string rewritten;
    std::string deleted;
};

// The number a listed line names in its comment, or -1.
long commentNumber(const std::string& text) {
    const size_t at = text.rfind("comment \"");
    return at == std::string::npos ? -1 : std::strtol(text.c_str() + at + 9, nullptr, 10);
}

// Statements that delete, by their handles, the rules of `chain` that `doomed` picks.
Status deleteListed(KernelTable& kernel, uint32_t shard, const std::string& chain,
                    const std::function<bool(const std::string&)>& doomed, std::string& out) {
    std::vector<KernelRule> rules;
    const Status status = kernel.listChain(shardTable(shard), chain, rules);
    for (const KernelRule& rule : rules) {
        if (doomed(rule.text)) {
            out += statement("delete rule", shard, chain, "handle " + std::to_string(rule.handle));
        }
    }
    return status;
}

// A chain whose lines are jumps, one per member, in order: appended to when the new
// members all come after the old ones, the gone ones' jumps deleted when members only
// went (listing the jumps costs less than writing a table's sixty-four anew), else
// written anew.
Status updateJumps(KernelTable& kernel, uint32_t shard, const std::string& chain,
                   const std::vector<uint32_t>& before, const std::vector<uint32_t>& after,
                   const std::function<std::string(uint32_t)>& target, ShardScript& out) {
    if (before == after) {
        return Status::success();
    }
    if (std::includes(before.begin(), before.end(), after.begin(), after.end())) {
        std::set<std::string> gone;
        for (uint32_t member : before) {
            if (!std::binary_search(after.begin(), after.end(), member)) {
                gone.insert("jump " + target(member));
            }
        }
        return deleteListed(
            kernel, shard, chain,
            [&gone](const std::string& text) { return gone.count(text) != 0; }, out.rewritten);
    }
    const bool onlyAppended =
        std::includes(after.begin(), after.end(), before.begin(), before.end()) &&
        (before.empty() || after[before.size() - 1] == before.back());
    if (!onlyAppended) {
        out.rewritten += statement("flush chain", shard, chain);
    }
    for (size_t i = onlyAppended ? before.size() : 0; i < after.size(); ++i) {
        out.rewritten += statement("add rule", shard, chain, "jump " + target(after[i]));
    }
    return Status::success();
}

// What one pass of a block holds before or after a change; nothing when it holds no rules.
struct BlockState {
    bool present = false;
    BlockObjects objects;
};

std::string addChainText(uint32_t shard, const std::string& name,
                         const std::vector<std::string>& lines, size_t from = 0) {
    std::string text;
    for (size_t i = from; i < lines.size(); ++i) {
        text += statement("add rule", shard, name, lines[i]);
    }
    return text;
}

std::string elementsText(const std::vector<std::string>& elements) {
    std::string text;
    for (const std::string& element : elements) {
        text += (text.empty() ? "" : ", ") + element;
    }
    return "{ " + text + " }";
}

// A block's rules in one state, parsed as far as a change needs them.
struct BlockRules {
    explicit BlockRules(const RuleStretch& rules) : stretch(rules) {}

    Status decode(const std::function<const ipfwsim::Rule*(size_t)>& known = nullptr) {
        return stretch.decode(storage, placed, known, &unparsed);
    }
    // The `index`th rule whole, parsed now if it was left.
    Status parse(size_t index) {
        if (!unparsed[index]) {
            return Status::success();
        }
        unparsed[index] = false;
        return stretch.parse(index, storage[index]);
    }

    const RuleStretch& stretch;
    std::vector<ipfwsim::StoredRule> storage;
    std::vector<PlacedRule> placed;
    std::vector<bool> unparsed;
};

class ChangeScript {
public:
    ChangeScript(const ipfwsim::StateFile& before, const ipfwsim::StateFile& after,
                 uint32_t disabledSets, KernelTable& kernel)
        : before_(before), after_(after), disabledSets_(disabledSets), kernel_(kernel) {}

    // `possible` false when the block holds a rule that looks up kept flows.
    Status addBlock(uint32_t block, bool& possible) {
        const uint32_t low = block * kBlockSpan;
        const uint32_t high = low + kBlockSpan - 1;
        const RuleStretch was(before_, low, high);
        const RuleStretch is(after_, low, high);
        // Rules only added after the block's last leave the pieces of the others as they were:
        // the state before is not even decoded then, and only the added rules' identities
        // are needed. The same holds for rules only deleted from the block's end, seen from
        // the other side.
        const bool appended = !was.empty() && was.size() < is.size() && was.leads(is);
        const bool cut = !is.empty() && is.size() < was.size() && is.leads(was) &&
                         was.numberAt(is.size() - 1) != was.numberAt(is.size());
        // Where one side's rules lead the other's, the longer side speaks for both.
        possible = appended ? !is.looksUpState()
                   : cut    ? !was.looksUpState()
                            : !was.looksUpState() && !is.looksUpState();
        if (!possible) {
            return Status::success();
        }
        ShardScript& out = shards_[shardOf(block)];
        if (was.empty() != is.empty()) {
            (was.empty() ? out.came : out.went).push_back(block);
        }
        if (cut) {
            return cutScript(block, was, was.identities(is.size()), is.size(), out);
        }
        // Otherwise runs are compared by their rules' identities; only those that changed
        // compile. A rule the same before and after is parsed once, and one whose stored
        // words show it is no key only when its line is compiled.
        const std::vector<std::string> wasIdentities =
            appended ? std::vector<std::string>() : was.identities();
        const std::vector<std::string> isIdentities = is.identities(appended ? was.size() : 0);
        BlockRules before(was);
        BlockRules after(is);
        Status status = after.decode();
        std::unordered_map<std::string_view, const ipfwsim::Rule*> parsed;
        for (size_t i = 0; status.ok() && !appended && i < after.placed.size(); ++i) {
            if (!after.unparsed[i]) {
                parsed.emplace(isIdentities[i], after.placed[i].rule);
            }
        }
        if (status.ok() && !appended) {
            status = before.decode([&](size_t i) -> const ipfwsim::Rule* {
                const auto found = parsed.find(wasIdentities[i]);
                return found == parsed.end() ? nullptr : found->second;
            });
        }
        const StoredView wasView{wasIdentities, before.unparsed};
        const StoredView isView{isIdentities, after.unparsed};
        for (Pass pass : kPasses) {
            BlockState old{!was.empty(), {}};
            BlockState now{!is.empty(), {}};
            if (status.ok() && appended) {
                status = compileTail(block, pass, after, isView, is.size() - was.size(), now);
            } else {
                if (status.ok() && old.present) {
                    status = compileBlock(block, pass, before.placed, {}, old.objects, &wasView);
                }
                if (status.ok() && now.present) {
                    status = compileBlock(block, pass, after.placed, {}, now.objects, &isView);
                }
            }
            if (status.ok()) {
                status = blockScript(pass, block, old, now, after, out);
            }
        }
        return status;
    }

    Status finish(std::string& script) {
        std::string created;
        std::string rewritten;
        std::string deleted;
        for (auto& [shard, out] : shards_) {
            const uint32_t low = shard * kShardSpan;
            const uint32_t high = low + kShardSpan - 1;
            const bool had = before_.holdsRulesIn(low, high);
            if (!after_.holdsRulesIn(low, high)) {
                deleted += had ? "delete table " + shardTable(shard) + "\n" : "";
            } else if (!had) {
                std::string table;
                Status status = wholeShard(shard, table);
                if (!status.ok()) {
                    return status;
                }
                created += table;
            } else {
                std::vector<uint32_t> was;
                std::vector<uint32_t> is;
                jumpLists(out, low, high, was, is);
                for (Pass pass : kPasses) {
                    Status status = updateJumps(
                        kernel_, shard, passChain(pass), was, is,
                        [pass](uint32_t b) { return blockChain(pass, b); }, out);
                    if (!status.ok()) {
                        return status;
                    }
                }
                created += out.created;
                rewritten += out.rewritten;
                deleted += out.deleted;
            }
        }
        script += created + rewritten + deleted;
        return Status::success();
    }

private:
    // The script for rules deleted from a block's end, `kept` of its rules staying: what
    // the deleted rules alone added goes (their elements, their lines found by their
    // numbers, their pieces' lines in the block chain by handle, the chains and maps only
    // they had).
    Status cutScript(uint32_t block, const RuleStretch& was,
                     const std::vector<std::string>& identities, size_t kept,
                     ShardScript& out) const {
        BlockRules before(was);
        Status status = before.decode();
        std::set<uint32_t> gone;
        for (size_t i = kept; i < was.size(); ++i) {
            gone.insert(was.numberAt(i));
        }
        const uint32_t shard = shardOf(block);
        const StoredView view{identities, before.unparsed};
        for (Pass pass : kPasses) {
            BlockObjects objects;
            if (status.ok()) {
                status = compileBlock(block, pass, before.placed, {}, objects, &view, kept);
            }
            const std::string chain = blockChain(pass, block);
            if (status.ok() && !objects.entries.empty()) {
                std::vector<KernelRule> listed;
                status = kernel_.listChain(shardTable(shard), chain, listed);
                for (size_t i = objects.skippedEntries; status.ok() && i < listed.size(); ++i) {
                    out.rewritten += statement("delete rule", shard, chain,
                                               "handle " + std::to_string(listed[i].handle));
                }
            }
            for (const auto& [name, map] : objects.maps) {
                std::vector<std::string> keys;
                for (const auto& [key, value] : map.elements) {
                    keys.push_back(key);
                }
                if (objects.kept.count(name) != 0) {
                    out.rewritten += statement("delete element", shard, name, elementsText(keys));
                } else {
                    out.deleted += statement("delete map", shard, name);
                }
            }
            for (const auto& [name, lines] : objects.chains) {
                if (objects.kept.count(name) == 0) {
                    out.deleted += statement("flush chain", shard, name) +
                                   statement("delete chain", shard, name);
                } else if (status.ok() && objects.runs.count(name) != 0) {
                    status = deleteListed(
                        kernel_, shard, name,
                        [&gone](const std::string& text) {
                            const long number = commentNumber(text);
                            return number >= 0 && gone.count(static_cast<uint32_t>(number)) != 0;
                        },
                        out.rewritten);
                }
            }
        }
        return status;
    }

    // What the rules added after the block's last add to it; against what it had, which
    // they leave as it was, there is nothing to compare.
    static Status compileTail(uint32_t block, Pass pass, const BlockRules& after,
                              const StoredView& isView, size_t added, BlockState& now) {
        return compileBlock(block, pass, after.placed, {}, now.objects, &isView,
                            after.placed.size() - added);
    }

    // The blocks the pass chains jump to before and after, as far as the jumps change:
    // only the blocks that went, when nothing came (their jumps are deleted); only the
    // blocks that came, when nothing went and no block beyond them held rules (their
    // jumps are appended); else every block of the table, read from both states.
    void jumpLists(ShardScript& out, uint32_t low, uint32_t high, std::vector<uint32_t>& was,
                   std::vector<uint32_t>& is) const {
        std::sort(out.came.begin(), out.came.end());
        std::sort(out.went.begin(), out.went.end());
        if (out.came.empty()) {
            was = out.went;
        } else if (out.went.empty() && !before_.holdsRulesIn(out.came.front() * kBlockSpan, high)) {
            is = out.came;
        } else {
            was = blocksWithRules(before_, low, high);
            is = blocksWithRules(after_, low, high);
        }
    }

    // Only what differs between the block's objects before and after: elements added and
    // deleted in maps that stay, chains written anew where their lines changed, the block
    // chain's lines appended or cut where one list continues the other. New objects come
    // first and gone ones last (maps before the chains their elements name), so that no
    // line or element ever names what is not there.
    Status blockScript(Pass pass, uint32_t block, const BlockState& old, const BlockState& now,
                       BlockRules& rules, ShardScript& out) const {
        if (!old.present && !now.present) {
            return Status::success();
        }
        const uint32_t shard = shardOf(block);
        const std::string chain = blockChain(pass, block);
        if (!old.present) {
            out.created += statement("add chain", shard, chain);
        }
        const ChainLines lines = [&](const std::string& name, size_t from,
                                     std::vector<std::string>& compiled) {
            return chainLines(now.objects, name, from, rules, pass, compiled);
        };
        Status status = createObjects(shard, old.objects, now.objects, lines, out);
        if (status.ok()) {
            status = rewriteEntries(shard, chain, old, now, out);
        }
        if (status.ok()) {
            status = rewriteObjects(shard, old.objects, now.objects, lines, out);
        }
        deleteObjects(shard, old.objects, now.objects, out);
        if (!now.present) {
            out.deleted += statement("delete chain", shard, chain);
        }
        return status;
    }

    // The lines of chain `name` of `objects` from its `from`th: a run's compiled from its
    // rules, any other's as they stand.
    using ChainLines = std::function<Status(const std::string&, size_t, std::vector<std::string>&)>;
    static Status chainLines(const BlockObjects& objects, const std::string& name, size_t from,
                             BlockRules& rules, Pass pass, std::vector<std::string>& compiled) {
        compiled.clear();
        const auto run = objects.runs.find(name);
        if (run == objects.runs.end()) {
            const std::vector<std::string>& lines = objects.chains.at(name);
            compiled.assign(lines.begin() + static_cast<long>(from), lines.end());
            return Status::success();
        }
        std::vector<PlacedRule> members;
        for (size_t i = from; i < run->second.size(); ++i) {
            Status status = rules.parse(run->second[i]);
            if (!status.ok()) {
                return status;
            }
            members.push_back(rules.placed[run->second[i]]);
        }
        return compileLines(members, pass, compiled);
    }

    // New chains and maps; those the rules left out have (`kept`) only take the lines and
    // elements of the rules added.
    static Status createObjects(uint32_t shard, const BlockObjects& old, const BlockObjects& now,
                                const ChainLines& lines, ShardScript& out) {
        for (const auto& [name, identified] : now.chains) {
            if (old.chains.count(name) != 0) {
                continue;
            }
            std::vector<std::string> compiled;
            Status status = lines(name, 0, compiled);
            if (!status.ok()) {
                return status;
            }
            if (now.kept.count(name) != 0) {
                out.rewritten += addChainText(shard, name, compiled);
            } else {
                out.created +=
                    statement("add chain", shard, name) + addChainText(shard, name, compiled);
            }
        }
        for (const auto& [name, map] : now.maps) {
            if (old.maps.count(name) != 0) {
                continue;
            }
            std::vector<std::string> elements;
            for (const auto& [key, value] : map.elements) {
                elements.push_back(elementText(key, value));
            }
            const std::string add = statement("add element", shard, name, elementsText(elements));
            if (now.kept.count(name) != 0) {
                out.rewritten += add;
            } else {
                out.created += statement("add map", shard, name,
                                         "{ typeof " + map.expression + " : verdict; }") +
                               add;
            }
        }
        return Status::success();
    }

    Status rewriteEntries(uint32_t shard, const std::string& chain, const BlockState& old,
                          const BlockState& now, ShardScript& out) const {
        const std::vector<std::string>& was = old.objects.entries;
        const std::vector<std::string>& is = now.objects.entries;
        if (was == is) {
            return Status::success();
        }
        const auto prefixOf = [](const std::vector<std::string>& shorter,
                                 const std::vector<std::string>& longer) {
            return shorter.size() <= longer.size() &&
                   std::equal(shorter.begin(), shorter.end(), longer.begin());
        };
        if (old.present && prefixOf(is, was)) {
            std::vector<KernelRule> listed;
            Status status = kernel_.listChain(shardTable(shard), chain, listed);
            for (size_t i = now.objects.skippedEntries + is.size();
                 status.ok() && i < listed.size(); ++i) {
                out.rewritten += statement("delete rule", shard, chain,
                                           "handle " + std::to_string(listed[i].handle));
            }
            return status;
        }
        const bool appended = old.present && prefixOf(was, is);
        if (old.present && !appended) {
            out.rewritten += statement("flush chain", shard, chain);
        }
        out.rewritten += addChainText(shard, chain, is, appended ? was.size() : 0);
        return Status::success();
    }

    static Status rewriteObjects(uint32_t shard, const BlockObjects& old, const BlockObjects& now,
                                 const ChainLines& lines, ShardScript& out) {
        for (const auto& [name, identified] : now.chains) {
            const auto was = old.chains.find(name);
            if (was == old.chains.end() || was->second == identified) {
                continue;
            }
            const bool appended =
                was->second.size() < identified.size() &&
                std::equal(was->second.begin(), was->second.end(), identified.begin());
            if (!appended) {
                out.rewritten += statement("flush chain", shard, name);
            }
            std::vector<std::string> compiled;
            Status status = lines(name, appended ? was->second.size() : 0, compiled);
            if (!status.ok()) {
                return status;
            }
            out.rewritten += addChainText(shard, name, compiled);
        }
        for (const auto& [name, map] : now.maps) {
            const auto was = old.maps.find(name);
            if (was == old.maps.end()) {
                continue;
            }
            std::vector<std::string> gone;
            std::vector<std::string> came;
            for (const auto& [key, value] : was->second.elements) {
                const auto stays = map.elements.find(key);
                if (stays == map.elements.end() || stays->second != value) {
                    gone.push_back(key);
                }
            }
            for (const auto& [key, value] : map.elements) {
                const auto stood = was->second.elements.find(key);
                if (stood == was->second.elements.end() || stood->second != value) {
                    came.push_back(elementText(key, value));
                }
            }
            if (!gone.empty()) {
                out.rewritten += statement("delete element", shard, name, elementsText(gone));
            }
            if (!came.empty()) {
                out.rewritten += statement("add element", shard, name, elementsText(came));
            }
        }
        return Status::success();
    }

    static void deleteObjects(uint32_t shard, const BlockObjects& old, const BlockObjects& now,
                              ShardScript& out) {
        for (const auto& [name, map] : old.maps) {
            if (now.maps.count(name) == 0) {
                out.deleted += statement("delete map", shard, name);
            }
        }
        for (const auto& [name, lines] : old.chains) {
            if (now.chains.count(name) == 0) {
                out.deleted +=
                    statement("flush chain", shard, name) + statement("delete chain", shard, name);
            }
        }
    }

    // A table that comes with this change holds only rules this change added, none of
    // which looks up kept flows.
    Status wholeShard(uint32_t shard, std::string& text) const {
        const RuleStretch stretch(after_, shard * kShardSpan, shard * kShardSpan + kShardSpan - 1);
        std::vector<ipfwsim::StoredRule> storage;
        std::vector<PlacedRule> rules;
        Status status = stretch.decode(storage, rules);
        PassBlocks passes;
        for (Pass pass : kPasses) {
            if (status.ok()) {
                status = passBlocks(rules, disabledSets_, pass, passes[static_cast<size_t>(pass)]);
            }
        }
        text = shardTableText(shard, disabledSets_, passes);
        return status;
    }

    const ipfwsim::StateFile& before_;
    const ipfwsim::StateFile& after_;
    const uint32_t disabledSets_;
    KernelTable& kernel_;
    std::map<uint32_t, ShardScript> shards_;
};

}  // namespace

bool holdsStateLookups(const ipfwsim::StateFile& file) {
    return linesLookUpState(file.rulesText());
}

Status compileChange(const ipfwsim::StateFile& before, const ipfwsim::StateFile& after,
                     const RuleChange& change, KernelTable& kernel, std::string& script,
                     bool& rebuild) {
    script.clear();
    rebuild = change.whole;
    ipfwsim::StateHeader was;
    ipfwsim::StateHeader is;
    Status status = before.readHeader(was, false);
    if (status.ok()) {
        status = after.readHeader(is, false);
    }
    if (!status.ok() || rebuild) {
        return status;
    }
    if (was.disabledSets != is.disabledSets) {
        if (holdsStateLookups(after)) {
            rebuild = true;
            return Status::success();
        }
        script += setSwitchScript(was.disabledSets, is.disabledSets, shardsWithRules(after));
    }
    std::set<uint32_t> blocks;
    for (const auto& [low, high] : change.numbers) {
        for (uint32_t block = blockOf(low); block <= blockOf(high); ++block) {
            blocks.insert(block);
        }
    }
    ChangeScript changes(before, after, is.disabledSets, kernel);
    for (uint32_t block : blocks) {
        bool possible = true;
        status = changes.addBlock(block, possible);
        if (!status.ok() || !possible) {
            rebuild = status.ok();
            script.clear();
            return status;
        }
    }
    return changes.finish(script);
}

}  // namespace ipfwnft
