#include "ipfwnft/BlockLayout.h"

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

std::vector<Piece> piecesOf(const std::vector<PlacedRule>& rules, Pass pass) {
    std::vector<Piece> pieces;
    for (size_t i = 0; i < rules.size(); ++i) {
        const Rule& rule = *rules[i].rule;
        RuleKeys keys;
        if (!looksUpState(rule) && lookupKeys(rule, pass, keys)) {
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

// The chain a keyed rule's elements jump to, made when the block has none yet.
Status verdictChain(const std::string& block, const PlacedRule& placed, Pass pass,
                    BlockObjects& objects, std::string& name) {
    const Rule& rule = *placed.rule;
    name = rule.log
               ? block + "_r" + std::to_string(rule.number) + "_" + std::to_string(placed.ordinal)
               : block + "_v" + std::to_string(rule.set) + "_" + actionName(rule);
    if (objects.chains.count(name) != 0) {
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

Status addGroup(const std::string& block, size_t index, Pass pass, const Piece& piece,
                const std::vector<PlacedRule>& rules, BlockObjects& objects) {
    std::map<uint8_t, VerdictMap> byShape;
    for (size_t m = 0; m < piece.members.size(); ++m) {
        const PlacedRule& placed = rules[piece.members[m]];
        std::string chain;
        Status status = verdictChain(block, placed, pass, objects, chain);
        if (!status.ok()) {
            return status;
        }
        const RuleKeys& keys = piece.keys[m];
        VerdictMap& map = byShape[keys.shape];
        map.expression = keyExpression(keys.shape);
        for (const KeyValues& key : keys.keys) {
            map.elements[keyText(keys.shape, key)] =
                "comment \"" + std::to_string(placed.rule->number) + "\" : jump " + chain;
        }
    }
    for (auto& [shape, map] : byShape) {
        const std::string name =
            block + "_p" + std::to_string(index) + "_s" + std::to_string(shape);
        objects.entries.push_back(map.expression + " vmap @" + name);
        objects.maps[name] = std::move(map);
    }
    return Status::success();
}

Status addRun(const std::string& block, size_t index, Pass pass, const Piece& piece,
              const std::vector<PlacedRule>& rules, const LeadingLines& leading,
              const std::vector<std::string>* identities, BlockObjects& objects) {
    const std::string name = block + "_p" + std::to_string(index);
    std::vector<std::string>& lines = objects.chains[name];
    objects.runs[name] = piece.members;
    objects.entries.push_back(runJump(piece.set, name));
    if (identities != nullptr) {
        for (size_t member : piece.members) {
            lines.push_back((*identities)[member]);
        }
        return Status::success();
    }
    for (size_t member : piece.members) {
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
                    const LeadingLines& leading, BlockObjects& objects,
                    const std::vector<std::string>* identities) {
    objects = BlockObjects();
    const std::string name = blockChain(pass, block);
    const std::vector<Piece> pieces = piecesOf(rules, pass);
    for (size_t index = 0; index < pieces.size(); ++index) {
        const Piece& piece = pieces[index];
        Status status = piece.keyed
                            ? addGroup(name, index, pass, piece, rules, objects)
                            : addRun(name, index, pass, piece, rules, leading, identities, objects);
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
