#include "ipfwnft/ChangeCompiler.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>

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
    // The touched buckets that gained their first rule, and those that lost their last.
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

// A run's chain as a change finds it: there with its entry in the bucket's chain, there
// but emptied along with the bucket's chain, or still to be made.
enum class RunChain { Entered, Flushed, New };

class ChangeScript {
public:
    ChangeScript(const ipfwsim::StateFile& before, const ipfwsim::StateFile& after,
                 uint32_t disabledSets, KernelTable& kernel)
        : before_(before), after_(after), disabledSets_(disabledSets), kernel_(kernel) {}

    // `possible` false when the bucket holds a rule that looks up kept flows.
    Status addBucket(uint32_t bucket, bool& possible) {
        const uint32_t low = bucket * kBucketSpan;
        const uint32_t high = low + kBucketSpan - 1;
        const RuleStretch was(before_, low, high);
        const RuleStretch is(after_, low, high);
        possible = !was.looksUpState() && !is.looksUpState();
        if (!possible) {
            return Status::success();
        }
        ShardScript& out = shards_[shardOf(bucket)];
        if (was.empty() != is.empty()) {
            (was.empty() ? out.came : out.went).push_back(bucket);
        }
        Status status;
        for (Pass pass : kPasses) {
            status = bucketScript(pass, bucket, was, is, out);
            if (!status.ok()) {
                return status;
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
                        [pass](uint32_t b) { return bucketChain(pass, b); }, out);
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
    // The buckets the pass chains jump to before and after, as far as the jumps change:
    // only the buckets that went, when nothing came (their jumps are deleted); only the
    // buckets that came, when nothing went and no bucket beyond them held rules (their
    // jumps are appended); else every bucket of the table, read from both states, which
    // costs a walk over the table's rules.
    void jumpLists(ShardScript& out, uint32_t low, uint32_t high, std::vector<uint32_t>& was,
                   std::vector<uint32_t>& is) const {
        std::sort(out.came.begin(), out.came.end());
        std::sort(out.went.begin(), out.went.end());
        if (out.came.empty()) {
            was = out.went;
        } else if (out.went.empty() &&
                   !before_.holdsRulesIn(out.came.front() * kBucketSpan, high)) {
            is = out.came;
        } else {
            was = bucketsWithRules(before_, low, high);
            is = bucketsWithRules(after_, low, high);
        }
    }

    // A bucket that lost rules but kept its runs only loses their lines, found by the
    // number in their comments; one that gained rules after its last gets their lines
    // appended, to its last run or to runs of their own; any other change writes the
    // bucket's chains anew.
    Status bucketScript(Pass pass, uint32_t bucket, const RuleStretch& was, const RuleStretch& is,
                        ShardScript& out) const {
        const std::vector<RuleRun> wasRuns = was.runs();
        const std::vector<RuleRun> isRuns = is.runs();
        if (is.empty()) {
            if (!was.empty()) {
                const uint32_t shard = shardOf(bucket);
                out.rewritten += statement("flush chain", shard, bucketChain(pass, bucket));
                dropRuns(pass, bucket, 0, wasRuns.size(), out);
                out.deleted += statement("delete chain", shard, bucketChain(pass, bucket));
            }
            return Status::success();
        }
        if (!was.empty() && is.keepsOnlyFrom(was) && sameSets(wasRuns, isRuns)) {
            return deleteGone(pass, bucket, was, is, wasRuns, out);
        }
        if (!was.empty() && is.extends(was)) {
            return appendRuns(pass, bucket, was, is, isRuns, wasRuns.size(), out);
        }
        return rewriteRuns(pass, bucket, was.empty(), is, isRuns, wasRuns.size(), out);
    }

    static bool sameSets(const std::vector<RuleRun>& a, const std::vector<RuleRun>& b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                          [](const RuleRun& x, const RuleRun& y) { return x.set == y.set; });
    }

    // Deleting rules leaves the runs as they were only when none of them emptied, so the
    // runs before and after are the same ones, each with fewer lines.
    Status deleteGone(Pass pass, uint32_t bucket, const RuleStretch& was, const RuleStretch& is,
                      const std::vector<RuleRun>& runs, ShardScript& out) const {
        for (size_t run = 0; run < runs.size(); ++run) {
            bool touched = false;
            for (size_t i = runs[run].first; i < runs[run].end; ++i) {
                touched |= !is.holdsNumber(was.numberAt(i));
            }
            if (!touched) {
                continue;
            }
            Status status = deleteListed(
                kernel_, shardOf(bucket), runChain(pass, bucket, run),
                [&is](const std::string& text) {
                    const long number = commentNumber(text);
                    return number >= 0 && !is.holdsNumber(static_cast<uint32_t>(number));
                },
                out.rewritten);
            if (!status.ok()) {
                return status;
            }
        }
        return Status::success();
    }

    // The rules after the last one of `was`: the first of them may extend its last run.
    Status appendRuns(Pass pass, uint32_t bucket, const RuleStretch& was, const RuleStretch& is,
                      const std::vector<RuleRun>& runs, size_t runsBefore, ShardScript& out) const {
        std::vector<ipfwsim::StoredRule> storage;
        std::vector<PlacedRule> rules;
        Status status = is.decode(was.size(), storage, rules);
        for (size_t run = runsBefore - 1; status.ok() && run < runs.size(); ++run) {
            const size_t from = std::max(runs[run].first, was.size()) - was.size();
            const size_t to = runs[run].end - was.size();
            status = fillRun(pass, bucket, run, runs[run].set,
                             run < runsBefore ? RunChain::Entered : RunChain::New,
                             {rules.begin() + from, rules.begin() + to}, out);
        }
        return status;
    }

    Status rewriteRuns(Pass pass, uint32_t bucket, bool created, const RuleStretch& is,
                       const std::vector<RuleRun>& runs, size_t runsBefore,
                       ShardScript& out) const {
        const uint32_t shard = shardOf(bucket);
        std::vector<ipfwsim::StoredRule> storage;
        std::vector<PlacedRule> rules;
        Status status = is.decode(0, storage, rules);
        if (created) {
            out.created += statement("add chain", shard, bucketChain(pass, bucket));
        } else {
            out.rewritten += statement("flush chain", shard, bucketChain(pass, bucket));
        }
        for (size_t run = 0; status.ok() && run < runs.size(); ++run) {
            if (run < runsBefore) {
                out.rewritten += statement("flush chain", shard, runChain(pass, bucket, run));
            }
            status = fillRun(pass, bucket, run, runs[run].set,
                             run < runsBefore ? RunChain::Flushed : RunChain::New,
                             {rules.begin() + runs[run].first, rules.begin() + runs[run].end}, out);
        }
        dropRuns(pass, bucket, runs.size(), runsBefore, out);
        return status;
    }

    // Adds the lines of `rules` to run `run`, and the run's chain when it is `New` and its
    // entry in the bucket's chain unless it is `Entered` already.
    Status fillRun(Pass pass, uint32_t bucket, size_t run, uint32_t set, RunChain state,
                   const std::vector<PlacedRule>& rules, ShardScript& out) const {
        const uint32_t shard = shardOf(bucket);
        const std::string chain = runChain(pass, bucket, run);
        std::vector<std::string> lines;
        Status status = compileLines(rules, pass, lines);
        std::string& text = state == RunChain::New ? out.created : out.rewritten;
        if (state == RunChain::New) {
            text += statement("add chain", shard, chain);
        }
        for (const std::string& line : lines) {
            text += statement("add rule", shard, chain, line);
        }
        if (state != RunChain::Entered) {
            out.rewritten +=
                statement("add rule", shard, bucketChain(pass, bucket), runJump(set, chain));
        }
        return status;
    }

    // Runs [from, to) of a bucket that no longer exist.
    static void dropRuns(Pass pass, uint32_t bucket, size_t from, size_t to, ShardScript& out) {
        for (size_t run = from; run < to; ++run) {
            out.rewritten += statement("flush chain", shardOf(bucket), runChain(pass, bucket, run));
            out.deleted += statement("delete chain", shardOf(bucket), runChain(pass, bucket, run));
        }
    }

    // A table that comes with this change holds only rules this change added, none of
    // which looks up kept flows.
    Status wholeShard(uint32_t shard, std::string& text) const {
        const RuleStretch stretch(after_, shard * kShardSpan, shard * kShardSpan + kShardSpan - 1);
        std::vector<ipfwsim::StoredRule> storage;
        std::vector<PlacedRule> rules;
        Status status = stretch.decode(0, storage, rules);
        PassLines passes;
        for (Pass pass : kPasses) {
            BucketLines& buckets = passes[static_cast<size_t>(pass)];
            if (status.ok()) {
                status = bucketLines(rules, disabledSets_, pass, buckets);
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
    std::set<uint32_t> buckets;
    for (const auto& [low, high] : change.numbers) {
        for (uint32_t bucket = bucketOf(low); bucket <= bucketOf(high); ++bucket) {
            buckets.insert(bucket);
        }
    }
    ChangeScript changes(before, after, is.disabledSets, kernel);
    for (uint32_t bucket : buckets) {
        bool possible = true;
        status = changes.addBucket(bucket, possible);
        if (!status.ok() || !possible) {
            rebuild = status.ok();
            script.clear();
            return status;
        }
    }
    return changes.finish(script);
}

}  // namespace ipfwnft
