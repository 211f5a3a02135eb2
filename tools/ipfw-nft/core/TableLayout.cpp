#include "ipfwnft/TableLayout.h"

#include <algorithm>

#include "ipfwnft/RuleKey.h"
#include "ipfwsim/RuleCodec.h"

namespace ipfwnft {

using ipfwsim::Status;

std::string setGate(uint32_t set) {
    if (set == ipfwsim::kReservedSet) {
        return {};
    }
    return "numgen random mod 1 offset " + std::to_string(set) + " @" + kEnabledSets + " ";
}

std::string runJump(uint32_t set, const std::string& chain) {
    return setGate(set) + "jump " + chain;
}

std::string setReturn(uint32_t set) {
    return "numgen random mod 1 offset " + std::to_string(set) + " != @" + kEnabledSets + " return";
}

namespace {

std::string generationStatements(const char* verb, uint32_t generation,
                                 const std::vector<uint32_t>& shards) {
    const std::string tail =
        std::string(" ") + kGenerationSet + " { " + std::to_string(generation) + " }\n";
    std::string script = std::string(verb) + " element " + kHeadTable + tail;
    for (uint32_t shard : shards) {
        script += std::string(verb) + " element " + shardTable(shard) + tail;
    }
    return script;
}

}  // namespace

bool isOwnTable(const std::string& table) {
    for (uint32_t shard = 0; shard < kShards; ++shard) {
        if (table == shardTable(shard)) {
            return true;
        }
    }
    return table == kHeadTable;
}

std::string generationProof(uint32_t generation, const std::vector<uint32_t>& shards) {
    return generationStatements("delete", generation, shards);
}

std::string generationMark(uint32_t generation, const std::vector<uint32_t>& shards) {
    return generationStatements("add", generation, shards);
}

std::string readAheadScript(const std::string& applied) {
    const std::string mark =
        std::string("add element ") + kHeadTable + " " + kGenerationSet + " { ";
    const size_t at = applied.rfind(mark);
    if (at == std::string::npos) {
        return "";
    }
    const size_t digits = at + mark.size();
    const size_t end = applied.find(" }\n", digits);
    if (end == std::string::npos || end == digits ||
        applied.find_first_not_of("0123456789", digits) != end) {
        return "";
    }
    return std::string("add table ") + kHeadTable + " { }\n" + applied.substr(at, end + 3 - at);
}

bool looksUpState(const ipfwsim::Rule& rule) {
    return rule.action.kind == ipfwsim::ActionKind::CheckState || rule.keepsState();
}

bool linesLookUpState(std::string_view lines) {
    return lines.find("keep-state") != std::string_view::npos ||
           lines.find("action=check-state") != std::string_view::npos;
}

namespace {

// A rule line without its counters and log allowance, which traffic changes:
// "NUMBER SET PACKETS BYTES LOGLEFT BODY" gives "NUMBER SET BODY".
std::string ruleIdentity(std::string_view line) {
    size_t spaces[5];
    size_t at = 0;
    for (size_t& space : spaces) {
        space = line.find(' ', at);
        if (space == std::string_view::npos) {
            return std::string(line);
        }
        at = space + 1;
    }
    return std::string(line.substr(0, spaces[1])) + std::string(line.substr(spaces[4]));
}

// The set of a rule line, its second word.
uint32_t ruleLineSet(std::string_view line) {
    const size_t space = line.find(' ');
    uint32_t set = 0;
    for (size_t i = space + 1; space != std::string_view::npos && i < line.size(); ++i) {
        if (line[i] < '0' || line[i] > '9') {
            break;
        }
        set = set * 10 + static_cast<uint32_t>(line[i] - '0');
    }
    return set;
}

}  // namespace

std::vector<std::string> RuleStretch::identities(size_t from) const {
    std::vector<std::string> found(lines_.size());
    for (size_t i = from; i < lines_.size(); ++i) {
        found[i] = ruleIdentity(lines_[i]);
    }
    return found;
}

// Lines the same to the byte need no identities; counters may differ, the rest may not.
bool RuleStretch::leads(const RuleStretch& other) const {
    if (lines_.size() > other.lines_.size()) {
        return false;
    }
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i] != other.lines_[i] &&
            ruleIdentity(lines_[i]) != ruleIdentity(other.lines_[i])) {
            return false;
        }
    }
    return true;
}

RuleStretch::RuleStretch(const ipfwsim::StateFile& file, uint32_t low, uint32_t high) {
    const std::vector<std::pair<long, std::string_view>> numbered =
        file.numberedLinesInRange(low, high);
    lines_.reserve(numbered.size());
    numbers_.reserve(numbered.size());
    for (const auto& [number, line] : numbered) {
        lines_.push_back(line);
        numbers_.push_back(static_cast<uint32_t>(number < 0 ? 0 : number));
    }
}

bool RuleStretch::looksUpState() const {
    return std::any_of(lines_.begin(), lines_.end(), linesLookUpState);
}

Status RuleStretch::decode(std::vector<ipfwsim::StoredRule>& storage,
                           std::vector<PlacedRule>& placed,
                           const std::function<const ipfwsim::Rule*(size_t)>& known,
                           std::vector<bool>* unparsed) const {
    storage.clear();
    storage.resize(lines_.size());
    placed.clear();
    if (unparsed != nullptr) {
        unparsed->assign(lines_.size(), false);
    }
    uint32_t ordinal = 0;
    for (size_t i = 0; i < lines_.size(); ++i) {
        ordinal = i > 0 && numbers_[i - 1] == numbers_[i] ? ordinal + 1 : 0;
        const ipfwsim::Rule* parsed = known ? known(i) : nullptr;
        if (parsed != nullptr) {
            placed.push_back(PlacedRule{parsed, ordinal});
            continue;
        }
        ipfwsim::StoredRule& stored = storage[i];
        if (unparsed != nullptr && surelyNoKey(lines_[i])) {
            (*unparsed)[i] = true;
            stored.rule.number = numbers_[i];
            stored.rule.set = ruleLineSet(lines_[i]);
        } else {
            Status status = parse(i, stored);
            if (!status.ok()) {
                return status;
            }
        }
        placed.push_back(PlacedRule{&stored.rule, ordinal});
    }
    return Status::success();
}

Status RuleStretch::parse(size_t index, ipfwsim::StoredRule& stored) const {
    if (!ipfwsim::StateFile::parseRuleLine(lines_[index], stored)) {
        return Status::failure(ipfwsim::kExitDataErr, "state file is corrupt: bad rule line '" +
                                                          std::string(lines_[index]) + "'");
    }
    return Status::success();
}

Status compileLines(const std::vector<PlacedRule>& rules, Pass pass,
                    std::vector<std::string>& lines) {
    for (const PlacedRule& placed : rules) {
        Status status = compileRule(placed, pass, lines);
        if (!status.ok()) {
            return Status::failure(
                status.code, "rule " + std::to_string(placed.rule->number) + ": " + status.message);
        }
    }
    return Status::success();
}

std::vector<uint32_t> blocksWithRules(const ipfwsim::StateFile& file, uint32_t low, uint32_t high) {
    std::vector<uint32_t> blocks;
    for (uint32_t block = blockOf(low); block <= blockOf(high); ++block) {
        if (file.holdsRulesIn(block * kBlockSpan, block * kBlockSpan + kBlockSpan - 1)) {
            blocks.push_back(block);
        }
    }
    return blocks;
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
