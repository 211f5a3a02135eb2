#include "ipfwnft/TableLayout.h"

#include <algorithm>

#include "ipfwsim/RuleCodec.h"

namespace ipfwnft {

using ipfwsim::Status;

std::string setGate(uint32_t set) {
    if (set == ipfwsim::kReservedSet) {
        return {};
    }
    return "numgen random mod 1 offset " + std::to_string(set) + " @" + kEnabledSets + " ";
}

bool looksUpState(const ipfwsim::Rule& rule) {
    return rule.action.kind == ipfwsim::ActionKind::CheckState || rule.keepsState();
}

Status RuleStretch::read(const ipfwsim::StateFile& file, uint32_t low, uint32_t high,
                         RuleStretch& stretch) {
    stretch = RuleStretch();
    for (std::string_view line : file.linesInRange(low, high)) {
        ipfwsim::StoredRule stored;
        if (!ipfwsim::StateFile::parseRuleLine(line, stored)) {
            return Status::failure(ipfwsim::kExitDataErr, "state file is corrupt: bad rule line '" +
                                                              std::string(line) + "'");
        }
        stretch.stored_.push_back(std::move(stored));
    }
    uint32_t ordinal = 0;
    for (size_t i = 0; i < stretch.stored_.size(); ++i) {
        const ipfwsim::Rule& rule = stretch.stored_[i].rule;
        ordinal = i > 0 && stretch.stored_[i - 1].rule.number == rule.number ? ordinal + 1 : 0;
        stretch.placed_.push_back(PlacedRule{&rule, ordinal});
    }
    return Status::success();
}

bool RuleStretch::looksUpState() const {
    for (const ipfwsim::StoredRule& stored : stored_) {
        if (ipfwnft::looksUpState(stored.rule)) {
            return true;
        }
    }
    return false;
}

namespace {

bool sameRule(const ipfwsim::Rule& a, const ipfwsim::Rule& b) {
    return a.number == b.number && a.set == b.set &&
           ipfwsim::encodeRule(a) == ipfwsim::encodeRule(b);
}

}  // namespace

bool RuleStretch::extends(const RuleStretch& earlier) const {
    return earlier.stored_.size() < stored_.size() &&
           std::equal(earlier.stored_.begin(), earlier.stored_.end(), stored_.begin(),
                      [](const ipfwsim::StoredRule& was, const ipfwsim::StoredRule& is) {
                          return sameRule(was.rule, is.rule);
                      });
}

bool RuleStretch::keepsOnlyFrom(const RuleStretch& earlier) const {
    size_t next = 0;
    for (const ipfwsim::StoredRule& was : earlier.stored_) {
        if (!holdsNumber(was.rule.number)) {
            continue;
        }
        if (next == stored_.size() || !sameRule(stored_[next].rule, was.rule)) {
            return false;
        }
        ++next;
    }
    return next == stored_.size();
}

bool RuleStretch::holdsNumber(uint32_t number) const {
    return std::any_of(stored_.begin(), stored_.end(), [number](const ipfwsim::StoredRule& stored) {
        return stored.rule.number == number;
    });
}

Status compileLines(const std::vector<PlacedRule>& rules, Pass pass,
                    std::vector<std::string>& lines) {
    for (const PlacedRule& placed : rules) {
        const size_t first = lines.size();
        Status status = compileRule(placed, pass, lines);
        if (!status.ok()) {
            return Status::failure(
                status.code, "rule " + std::to_string(placed.rule->number) + ": " + status.message);
        }
        for (size_t i = first; i < lines.size(); ++i) {
            lines[i] = setGate(placed.rule->set) + lines[i];
        }
    }
    return Status::success();
}

std::vector<uint32_t> bucketsWithRules(const ipfwsim::StateFile& file, uint32_t low,
                                       uint32_t high) {
    std::vector<uint32_t> buckets;
    for (std::string_view line : file.linesInRange(low, high)) {
        const long number = ipfwsim::ruleLineNumber(line);
        const uint32_t bucket = bucketOf(static_cast<uint32_t>(number < 0 ? 0 : number));
        if (buckets.empty() || buckets.back() != bucket) {  // the lines come in number order
            buckets.push_back(bucket);
        }
    }
    return buckets;
}

std::vector<uint32_t> shardsWithRules(const ipfwsim::StateFile& file) {
    std::vector<uint32_t> found;
    for (uint32_t shard = 0; shard < kShards; ++shard) {
        if (file.holdsRulesIn(shard * kShardSpan, shard * kShardSpan + kShardSpan - 1)) {
            found.push_back(shard);
        }
    }
    return found;
}

}  // namespace ipfwnft
