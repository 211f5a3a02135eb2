#include "ipfwnft/BlockLayout.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "ipfwnft/RuleKey.h"
#include "ipfwnft/TableLayout.h"
#include "ipfwsim/KernelLog.h"

namespace ipfwnft {
namespace {

using ipfwsim::Rule;
using ipfwsim::Status;

struct Piece {
    bool keyed = false;
    uint32_t set = 0;  // a run's
    uint32_t run = 0;  // a run's span of kRunSpan numbers
    std::vector<size_t> members;
    std::vector<RuleKeys> keys;  // a group's, by member
    KeyIndex index;
};

// The action as a name may hold it: "deny", "unreach3".
std::string actionName(const Rule& rule) {
    std::string name;
    for (char c : ipfwsim::actionLogWord(rule.action)) {
        if (c != ' ') {
            name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return name;
}

std::vector<Piece> piecesOf(const std::vector<PlacedRule>& rules, Pass pass,
                            const StoredView* stored) {
    std::vector<Piece> pieces;
    for (size_t i = 0; i < rules.size(); ++i) {
        const Rule& rule = *rules[i].rule;
        RuleKeys keys;
        const bool unparsed = stored != nullptr && stored->unparsed[i];
        if (!unparsed && !looksUpState(rule) && lookupKeys(rule, pass, keys)) {
            if (keys.keys.empty()) {
                continue;  // it cannot match in this pass
            }
            if (pieces.empty() || !pieces.back().keyed || pieces.back().index.meets(keys)) {
                pieces.emplace_back();
                pieces.back().keyed = true;
            }
            pieces.back().index.add(keys);
            pieces.back().members.push_back(i);
            pieces.back().keys.push_back(std::move(keys));
            continue;
        }
        const uint32_t run = rule.number / kRunSpan;
        if (pieces.empty() || pieces.back().keyed || pieces.back().set != rule.set ||
            pieces.back().run != run) {
            pieces.emplace_back();
            pieces.back().set = rule.set;
            pieces.back().run = run;
        }
        pieces.back().members.push_back(i);
    }
    return pieces;
}

// The chain a keyed rule's elements jump to: its own when it logs, else its set's and
// action's in the block.
std::string verdictChainName(const std::string& block, const PlacedRule& placed) {
    const Rule& rule = *placed.rule;
    return rule.log
               ? block + "_r" + std::to_string(rule.number) + "_" + std::to_string(placed.ordinal)
               : block + "_v" + std::to_string(rule.set) + "_" + actionName(rule);
}

// The verdict chain, made when the block has none yet.
Status verdictChain(const std::string& block, const PlacedRule& placed, Pass pass,
                    BlockObjects& objects, std::string& name) {
    const Rule& rule = *placed.rule;
    name = verdictChainName(block, placed);
    if (objects.chains.count(name) != 0 || objects.kept.count(name) != 0) {
        return Status::success();
    }
    std::string action;
    Status status = compileVerdict(placed, pass, rule.log, action);
    std::vector<std::string>& lines = objects.chains[name];
    if (rule.set != ipfwsim::kReservedSet) {
        lines.push_back(setReturn(rule.set));
    }
    lines.push_back(action);
    return status;
}

std::string mapName(const std::string& block, size_t index, uint8_t shape) {
    return block + "_p" + std::to_string(index) + "_s" + std::to_string(shape);
}

// A group's members before `firstMember` are left out: their maps and verdict chains are
// kept, and each shape among them counts one line of the block chain.
Status addGroup(const std::string& block, size_t index, Pass pass, const Piece& piece,
                const std::vector<PlacedRule>& rules, size_t firstMember, BlockObjects& objects) {
    // In the order the shapes first come, so that a rule added after the last only ever
    // appends its shape's lookup.
    std::map<uint8_t, VerdictMap> byShape;
    std::vector<uint8_t> order;
    for (size_t m = 0; m < piece.members.size(); ++m) {
        const PlacedRule& placed = rules[piece.members[m]];
        const RuleKeys& keys = piece.keys[m];
        const bool fresh = byShape.count(keys.shape) == 0;
        VerdictMap& map = byShape[keys.shape];
        if (piece.members[m] < firstMember) {
            objects.kept.insert(verdictChainName(block, placed));
            if (fresh) {
                objects.kept.insert(mapName(block, index, keys.shape));
                ++objects.skippedEntries;
            }
            continue;
        }
        if (fresh) {
            order.push_back(keys.shape);
        }
        std::string chain;
        Status status = verdictChain(block, placed, pass, objects, chain);
        if (!status.ok()) {
            return status;
        }
        map.expression = keyExpression(keys.shape);
        for (const KeyValues& key : keys.keys) {
            map.elements[keyText(keys.shape, key)] =
                "comment \"" + std::to_string(placed.rule->number) + "\" : jump " + chain;
        }
    }
    for (auto& [shape, map] : byShape) {
        if (!map.elements.empty()) {
            objects.maps[mapName(block, index, shape)] = std::move(map);
        }
    }
    for (uint8_t shape : order) {
        objects.entries.push_back(keyExpression(shape) + " vmap @" + mapName(block, index, shape));
    }
    return Status::success();
}

// A run's members before `firstMember` are left out: its chain is kept with them, and
// its line in the block chain counted.
Status addRun(const std::string& block, size_t index, Pass pass, const Piece& piece,
              const std::vector<PlacedRule>& rules, const LeadingLines& leading,
              const StoredView* stored, size_t firstMember, BlockObjects& objects) {
    const std::string name = block + "_p" + std::to_string(index);
    std::vector<size_t> members;
    for (size_t member : piece.members) {
        if (member >= firstMember) {
            members.push_back(member);
        }
    }
    if (members.size() < piece.members.size()) {
        objects.kept.insert(name);
        ++objects.skippedEntries;
    } else {
        objects.entries.push_back(runJump(piece.set, name));
    }
    if (members.empty()) {
        return Status::success();
    }
    std::vector<std::string>& lines = objects.chains[name];
    objects.runs[name] = members;
    if (stored != nullptr) {
        for (size_t member : members) {
            lines.push_back(stored->identities[member]);
        }
        return Status::success();
    }
    for (size_t member : members) {
        const auto lead = leading.find(rules[member].rule);
        if (lead != leading.end()) {
            lines.insert(lines.end(), lead->second.begin(), lead->second.end());
        }
        Status status = compileLines({rules[member]}, pass, lines);
        if (!status.ok()) {
            return status;
        }
    }
    return Status::success();
}

std::string chainText(const std::string& name, const std::vector<std::string>& lines) {
    std::string text = "\tchain " + name + " {\n";
    for (const std::string& line : lines) {
        text += "\t\t" + line + "\n";
    }
    return text + "\t}\n";
}

}  // namespace

Status compileBlock(uint32_t block, Pass pass, const std::vector<PlacedRule>& rules,
                    const LeadingLines& leading, BlockObjects& objects, const StoredView* stored,
                    size_t firstMember) {
    objects = BlockObjects();
    const std::string name = blockChain(pass, block);
    const std::vector<Piece> pieces = piecesOf(rules, pass, stored);
    for (size_t index = 0; index < pieces.size(); ++index) {
        const Piece& piece = pieces[index];
        Status status =
            piece.keyed
                ? addGroup(name, index, pass, piece, rules, firstMember, objects)
                : addRun(name, index, pass, piece, rules, leading, stored, firstMember, objects);
        if (!status.ok()) {
            return status;
        }
    }
    return Status::success();
}

std::string elementText(const std::string& key, const std::string& value) {
    return key + " " + value;
}

std::string blockText(Pass pass, uint32_t block, const BlockObjects& objects) {
    std::string text;
    for (const auto& [name, lines] : objects.chains) {
        text += chainText(name, lines);
    }
    for (const auto& [name, map] : objects.maps) {
        text += "\tmap " + name + " {\n\t\ttypeof " + map.expression + " : verdict\n";
        std::string elements;
        for (const auto& [key, value] : map.elements) {
            elements += (elements.empty() ? "" : ", ") + elementText(key, value);
        }
        text += "\t\telements = { " + elements + " }\n\t}\n";
    }
    return text + chainText(blockChain(pass, block), objects.entries);
}

}  // namespace ipfwnft
