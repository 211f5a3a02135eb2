#include "ipfwnft/ChangeCompiler.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>

#include "ipfwnft/TableCompiler.h"
#include "ipfwnft/TableLayout.h"

namespace ipfwnft {
namespace {

using ipfwsim::Status;

std::string statement(const std::string& verb, const std::string& chain,
                      const std::string& rest = "") {
    return verb + " " + kTableName + " " + chain + (rest.empty() ? "" : " " + rest) + "\n";
}

// The chains of one pass that a change creates, rewrites and deletes. Creations come
// first and deletions last, so that no jump ever names a chain that is not there.
struct PassScript {
    std::string created;
    std::string rewritten;
    std::string deleted;
};

// A chain whose lines are jumps, one per member, in order: appended to when the new
// members all come after the old ones, else written anew.
void updateJumps(const std::string& chain, const std::vector<uint32_t>& before,
                 const std::vector<uint32_t>& after,
                 const std::function<std::string(uint32_t)>& target, PassScript& out) {
    if (before == after) {
        return;
    }
    const bool onlyAppended =
        std::includes(after.begin(), after.end(), before.begin(), before.end()) &&
        (before.empty() || after[before.size() - 1] == before.back());
    std::string& text = before.empty() ? out.created : out.rewritten;
    if (!onlyAppended) {
        text += statement("flush chain", chain);
    }
    for (size_t i = onlyAppended ? before.size() : 0; i < after.size(); ++i) {
        text += statement("add rule", chain, "jump " + target(after[i]));
    }
}

class ChangeScript {
public:
    ChangeScript(const ipfwsim::StateFile& before, const ipfwsim::StateFile& after)
        : before_(before), after_(after) {}

    // False when a bucket holds a rule that looks up kept flows.
    Status addBucket(uint32_t bucket, bool& possible) {
        const uint32_t low = bucket * kBucketSpan;
        const uint32_t high = low + kBucketSpan - 1;
        RuleStretch was;
        RuleStretch is;
        Status status = RuleStretch::read(before_, low, high, was);
        if (status.ok()) {
            status = RuleStretch::read(after_, low, high, is);
        }
        possible = status.ok() && !was.looksUpState() && !is.looksUpState();
        for (Pass pass : kPasses) {
            if (!possible || !status.ok()) {
                break;
            }
            status = bucketScript(pass, bucket, was, is, passes_[static_cast<size_t>(pass)]);
        }
        if (was.empty() != is.empty()) {
            supersToCheck_.insert(superOf(bucket));
        }
        return status;
    }

    std::string finish() {
        for (Pass pass : kPasses) {
            PassScript& out = passes_[static_cast<size_t>(pass)];
            for (uint32_t super : supersToCheck_) {
                superScript(pass, super, out);
            }
            if (!supersToCheck_.empty()) {
                updateJumps(passChain(pass), supers(before_), supers(after_),
                            [pass](uint32_t s) { return superChain(pass, s); }, out);
            }
        }
        std::string script;
        for (const PassScript& out : passes_) {
            script += out.created;
        }
        for (const PassScript& out : passes_) {
            script += out.rewritten;
        }
        for (const PassScript& out : passes_) {
            script += out.deleted;
        }
        return script;
    }

private:
    static Status bucketScript(Pass pass, uint32_t bucket, const RuleStretch& was,
                               const RuleStretch& is, PassScript& out) {
        const std::string chain = bucketChain(pass, bucket);
        if (is.empty()) {
            if (!was.empty()) {
                out.rewritten += statement("flush chain", chain);
                out.deleted += statement("delete chain", chain);
            }
            return Status::success();
        }
        const bool appended = !was.empty() && is.extends(was);
        std::vector<PlacedRule> rules = is.placed();
        if (appended) {
            rules.erase(rules.begin(), rules.begin() + static_cast<long>(was.placed().size()));
        }
        std::vector<std::string> lines;
        Status status = compileLines(rules, pass, lines);
        std::string& text = was.empty() ? out.created : out.rewritten;
        if (was.empty()) {
            text += statement("add chain", chain);
        } else if (!appended) {
            text += statement("flush chain", chain);
        }
        for (const std::string& line : lines) {
            text += statement("add rule", chain, line);
        }
        return status;
    }

    void superScript(Pass pass, uint32_t super, PassScript& out) const {
        const uint32_t low = super * kSuperSpan;
        const uint32_t high = low + kSuperSpan - 1;
        const std::vector<uint32_t> was = bucketsWithRules(before_, low, high);
        const std::vector<uint32_t> is = bucketsWithRules(after_, low, high);
        const std::string chain = superChain(pass, super);
        if (is.empty()) {
            out.rewritten += statement("flush chain", chain);
            out.deleted += statement("delete chain", chain);
            return;
        }
        if (was.empty()) {
            out.created += statement("add chain", chain);
        }
        updateJumps(chain, was, is, [pass](uint32_t b) { return bucketChain(pass, b); }, out);
    }

    static std::vector<uint32_t> supers(const ipfwsim::StateFile& file) {
        std::vector<uint32_t> found;
        for (uint32_t super = 0; super * kSuperSpan <= ipfwsim::kHighestUserRule; ++super) {
            if (file.holdsRulesIn(super * kSuperSpan, super * kSuperSpan + kSuperSpan - 1)) {
                found.push_back(super);
            }
        }
        return found;
    }

    const ipfwsim::StateFile& before_;
    const ipfwsim::StateFile& after_;
    PassScript passes_[std::size(kPasses)];
    std::set<uint32_t> supersToCheck_;
};

}  // namespace

bool holdsStateLookups(const ipfwsim::StateFile& file) {
    const std::string_view rules = file.rulesText();
    return rules.find("keep-state") != std::string_view::npos ||
           rules.find("action=check-state") != std::string_view::npos;
}

Status compileChange(const ipfwsim::StateFile& before, const ipfwsim::StateFile& after,
                     const RuleChange& change, std::string& script, bool& rebuild) {
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
        script += setSwitchScript(was.disabledSets, is.disabledSets);
    }
    std::set<uint32_t> buckets;
    for (const auto& [low, high] : change.numbers) {
        for (uint32_t bucket = bucketOf(low); bucket <= bucketOf(high); ++bucket) {
            buckets.insert(bucket);
        }
    }
    ChangeScript changes(before, after);
    for (uint32_t bucket : buckets) {
        bool possible = true;
        status = changes.addBucket(bucket, possible);
        if (!status.ok() || !possible) {
            rebuild = status.ok();
            script.clear();
            return status;
        }
    }
    script += changes.finish();
    return Status::success();
}

}  // namespace ipfwnft
