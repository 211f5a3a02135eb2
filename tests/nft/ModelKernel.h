// The nftables tables of the enforcing ipfw as the kernel keeps them, for tests on
// strings: it runs the statements ipfw writes, each script as one transaction that either
// applies whole or changes nothing, refusing what nftables refuses (anything in a missing
// table, chain or map, a jump to a missing chain, a lookup in a missing map, deleting a
// chain that is used or not empty, a map that is used, a missing element or table, an
// element whose key a map holds with another verdict).
#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ipfwnft/KernelTable.h"

namespace nfttest {

class ModelKernel : public ipfwnft::KernelTable {
public:
    std::vector<std::string> scripts;  // every script applied
    bool refuse = false;               // refuse every script, as without privileges
    bool loseAnswers = false;          // take every script but lose the answer

    ipfwsim::Status apply(const std::string& script) override {
        Tables next = tables_;
        std::string error;
        if (refuse) {
            error = "Operation not permitted";
        } else if (!run(script, next, error)) {
            error = "Could not process rule: " + error;
        }
        if (!error.empty()) {
            return ipfwsim::Status::failure(ipfwsim::kExitUnavailable, "nftables: " + error);
        }
        tables_ = next;
        scripts.push_back(script);
        return loseAnswers ? ipfwsim::Status::failure(ipfwsim::kExitIoErr, "nftables: no answer")
                           : ipfwsim::Status::success();
    }

    ipfwsim::Status listChain(const std::string& table, const std::string& chain,
                              std::vector<ipfwnft::KernelRule>& rules) override {
        const auto found = tables_.find(table.substr(table.find(' ') + 1));
        if (found == tables_.end() || found->second.chains.count(chain) == 0) {
            return ipfwsim::Status::failure(ipfwsim::kExitUnavailable,
                                            "nftables: No such file or directory");
        }
        rules = found->second.chains.at(chain);
        ++listings;
        return ipfwsim::Status::success();
    }
    int listings = 0;  // chains listed

    // As "nft flush ruleset" behind the back of ipfw.
    void flushRuleset() { tables_.clear(); }

    std::vector<std::string> tableNames() const {
        std::vector<std::string> names;
        for (const auto& entry : tables_) {
            names.push_back(entry.first);
        }
        return names;
    }

    // The lines a packet meets in `table` from `chain` on, plain jumps and the set-tested
    // entries of runs followed, each line led by the set test that led to it.
    std::vector<std::string> walk(const std::string& table, const std::string& chain) const {
        std::vector<std::string> lines;
        const auto found = tables_.find(table);
        if (found == tables_.end() || found->second.chains.count(chain) == 0) {
            return lines;
        }
        for (const ipfwnft::KernelRule& rule : found->second.chains.at(chain)) {
            const std::string& line = rule.text;
            const size_t vmap = line.find(" vmap @");
            if (vmap != std::string::npos) {
                // Each element as the lines its verdict chain holds, led by its key.
                const Map* map = mapOf(table, line.substr(vmap + 7));
                for (const auto& [key, value] : map != nullptr ? map->elements : Elements()) {
                    const std::string lead = line.substr(0, vmap) + " " + key + " " +
                                             value.substr(0, value.find(": ") + 2);
                    for (const std::string& inner : walk(table, jumpTarget(value))) {
                        lines.push_back(lead + inner);
                    }
                }
                continue;
            }
            const std::string target = jumpTarget(line);
            const size_t jump = line.find("jump ");
            const bool entry = jump != std::string::npos &&
                               line.size() == jump + 5 + target.size() &&
                               (jump == 0 || line.find("@enabled_sets ") != std::string::npos);
            if (entry && found->second.chains.count(target) != 0) {
                // A run's lines as if each carried its entry's tests.
                for (const std::string& inner : walk(table, target)) {
                    lines.push_back(line.substr(0, jump) + inner);
                }
            } else {
                lines.push_back(line);
            }
        }
        return lines;
    }
    // Both passes' lines of every table that holds rules, in hook order.
    std::vector<std::string> walkAll(const std::string& chain) const {
        std::vector<std::string> lines;
        for (const std::string& table : tableNames()) {
            const std::vector<std::string> part = walk(table, chain);
            lines.insert(lines.end(), part.begin(), part.end());
        }
        return lines;
    }
    std::set<std::string> elements(const std::string& table, const std::string& set) const {
        const auto found = tables_.find(table);
        if (found == tables_.end() || found->second.sets.count(set) == 0) {
            return {};
        }
        return found->second.sets.at(set);
    }
    // The rules of `chain` in `table`, or nullptr when there is no such chain.
    const std::vector<ipfwnft::KernelRule>* rulesOf(const std::string& table,
                                                    const std::string& chain) const {
        const auto found = tables_.find(table);
        if (found == tables_.end()) {
            return nullptr;
        }
        const auto rules = found->second.chains.find(chain);
        return rules == found->second.chains.end() ? nullptr : &rules->second;
    }
    // Chains and maps.
    size_t objectCount(const std::string& table) const {
        const auto found = tables_.find(table);
        return found == tables_.end() ? 0 : found->second.chains.size() + found->second.maps.size();
    }

    // A verdict map's elements by key ("6 . 10.0.0.1 . 22"), each "comment \"N\" : jump X".
    using Elements = std::map<std::string, std::string>;
    struct Map {
        std::string expression;
        Elements elements;
    };
    const Map* mapOf(const std::string& table, const std::string& name) const {
        const auto found = tables_.find(table);
        if (found == tables_.end()) {
            return nullptr;
        }
        const auto map = found->second.maps.find(name);
        return map == found->second.maps.end() ? nullptr : &map->second;
    }

private:
    struct Table {
        std::map<std::string, std::vector<ipfwnft::KernelRule>> chains;
        std::map<std::string, std::set<std::string>> sets;
        std::map<std::string, Map> maps;
        uint64_t nextHandle = 1;
        void append(const std::string& chain, const std::string& text) {
            chains[chain].push_back(ipfwnft::KernelRule{nextHandle++, text});
        }
    };
    // By name, "ipfw_s3"; in number order of their shards for names of equal length.
    struct ByShard {
        bool operator()(const std::string& a, const std::string& b) const {
            return a.size() != b.size() ? a.size() < b.size() : a < b;
        }
    };
    using Tables = std::map<std::string, Table, ByShard>;

    // The chain a line jumps to, or "".
    static std::string jumpTarget(const std::string& line) {
        const size_t jump = line.find("jump ");
        if (jump == std::string::npos) {
            return {};
        }
        const std::string rest = line.substr(jump + 5);
        return rest.substr(0, rest.find(' '));
    }

    static bool referenced(const Table& table, const std::string& chain) {
        for (const auto& [name, rules] : table.chains) {
            for (const ipfwnft::KernelRule& rule : rules) {
                if (jumpTarget(rule.text) == chain) {
                    return true;
                }
            }
        }
        for (const auto& [name, map] : table.maps) {
            for (const auto& [key, value] : map.elements) {
                if (jumpTarget(value) == chain) {
                    return true;
                }
            }
        }
        return false;
    }

    // The map a rule looks up, or "".
    static std::string lookedUp(const std::string& line) {
        const size_t at = line.find(" vmap @");
        return at == std::string::npos ? std::string() : line.substr(at + 7);
    }

    static bool mapUsed(const Table& table, const std::string& map) {
        for (const auto& [name, rules] : table.chains) {
            for (const ipfwnft::KernelRule& rule : rules) {
                if (lookedUp(rule.text) == map) {
                    return true;
                }
            }
        }
        return false;
    }

    // "KEY comment \"N\" : VERDICT" as key and the rest.
    static std::pair<std::string, std::string> element(const std::string& text) {
        const size_t comment = text.find(" comment ");
        const size_t at = comment != std::string::npos ? comment : text.find(" : ");
        return {text.substr(0, at), text.substr(at + 1)};
    }

    static bool addElements(Map& map, const std::set<std::string>& texts, std::string& error) {
        for (const std::string& text : texts) {
            const auto [key, value] = element(text);
            const auto there = map.elements.find(key);
            if (there != map.elements.end() && there->second != value) {
                error = "File exists";
                return false;
            }
            map.elements[key] = value;
        }
        return true;
    }

    static std::set<std::string> braced(const std::string& text) {
        std::set<std::string> values;
        std::string inside = text.substr(text.find('{') + 1);
        inside = inside.substr(0, inside.find('}'));
        std::istringstream words(inside);
        for (std::string word; std::getline(words, word, ',');) {
            const size_t first = word.find_first_not_of(' ');
            if (first != std::string::npos) {
                values.insert(word.substr(first, word.find_last_not_of(' ') - first + 1));
            }
        }
        return values;
    }

    static bool run(const std::string& script, Tables& tables, std::string& error) {
        std::istringstream in(script);
        Table* block = nullptr;
        std::string chain;
        std::string set;
        std::string map;
        for (std::string line; std::getline(in, line);) {
            if (block == nullptr) {
                if (!statement(line, tables, block, error)) {
                    return false;
                }
            } else if (line == "}") {
                block = nullptr;
            } else if (line.rfind("\tchain ", 0) == 0) {
                chain = line.substr(7, line.size() - 9);
                block->chains[chain];
            } else if (line.rfind("\tset ", 0) == 0) {
                set = line.substr(5, line.size() - 7);
                block->sets[set];
            } else if (line.rfind("\tmap ", 0) == 0) {
                map = line.substr(5, line.size() - 7);
                block->maps[map];
            } else if (line == "\t}") {
                chain.clear();
                set.clear();
                map.clear();
            } else if (!map.empty() && line.rfind("\t\ttypeof ", 0) == 0) {
                block->maps[map].expression = line.substr(9, line.find(" : verdict") - 9);
            } else if (!map.empty() && line.find("elements = {") != std::string::npos) {
                if (!addElements(block->maps[map], braced(line), error)) {
                    return false;
                }
            } else if (!set.empty() && line.find("elements = {") != std::string::npos) {
                block->sets[set] = braced(line);
            } else if (!chain.empty() && line.rfind("\t\ttype ", 0) != 0) {
                block->append(chain, line.substr(2));
            }
        }
        // Jumps are checked once all chains of the script exist, as the kernel does.
        for (const auto& [name, table] : tables) {
            for (const auto& [chainName, rules] : table.chains) {
                for (const ipfwnft::KernelRule& rule : rules) {
                    const std::string target = jumpTarget(rule.text);
                    if (!target.empty() && table.chains.count(target) == 0) {
                        error = "jump to missing chain " + target;
                        return false;
                    }
                    const std::string map = lookedUp(rule.text);
                    if (!map.empty() && table.maps.count(map) == 0) {
                        error = "lookup in missing map " + map;
                        return false;
                    }
                }
            }
            for (const auto& [mapName, map] : table.maps) {
                for (const auto& [key, value] : map.elements) {
                    if (table.chains.count(jumpTarget(value)) == 0) {
                        error = "element jumps to missing chain " + jumpTarget(value);
                        return false;
                    }
                }
            }
        }
        return true;
    }

    // One statement outside a table block; `block` is set when one begins.
    static bool statement(const std::string& line, Tables& tables, Table*& block,
                          std::string& error) {
        std::istringstream words(line);
        std::string verb;
        std::string what;
        std::string family;
        std::string name;
        words >> verb;
        if (verb == "table") {
            words >> family >> name;
            Table& table = tables[name];
            std::string brace;
            block = (words >> brace) && brace == "{" ? &table : nullptr;
            return true;
        }
        words >> what >> family >> name;
        const auto found = tables.find(name);
        if (line.empty()) {
            return true;
        }
        if (found == tables.end()) {
            error = "No such file or directory";
            return false;
        }
        Table& table = found->second;
        std::string object;
        words >> object;
        std::string rest;
        std::getline(words, rest);
        rest = rest.empty() ? rest : rest.substr(1);
        if (verb == "delete" && what == "table") {
            tables.erase(found);
        } else if (verb == "add" && what == "chain") {
            table.chains[object];
        } else if (verb == "flush" && what == "chain" && table.chains.count(object) != 0) {
            table.chains[object].clear();
        } else if (verb == "delete" && what == "chain" && table.chains.count(object) != 0 &&
                   table.chains[object].empty() && !referenced(table, object)) {
            table.chains.erase(object);
        } else if (verb == "add" && what == "rule" && table.chains.count(object) != 0) {
            table.append(object, rest);
        } else if (verb == "delete" && what == "rule" && table.chains.count(object) != 0 &&
                   rest.rfind("handle ", 0) == 0) {
            std::vector<ipfwnft::KernelRule>& rules = table.chains[object];
            const uint64_t handle = std::stoull(rest.substr(7));
            const auto doomed =
                std::find_if(rules.begin(), rules.end(),
                             [handle](const auto& rule) { return rule.handle == handle; });
            if (doomed == rules.end()) {
                error = "No such file or directory";
                return false;
            }
            rules.erase(doomed);
        } else if (verb == "add" && what == "map" && table.maps.count(object) == 0) {
            const size_t typeOf = rest.find("typeof ");
            table.maps[object].expression =
                rest.substr(typeOf + 7, rest.find(" : verdict") - typeOf - 7);
        } else if (verb == "delete" && what == "map" && table.maps.count(object) != 0 &&
                   !mapUsed(table, object)) {
            table.maps.erase(object);
        } else if (what == "element" && table.maps.count(object) != 0) {
            Map& map = table.maps[object];
            if (verb == "add") {
                return addElements(map, braced(rest), error);
            }
            for (const std::string& key : braced(rest)) {
                if (map.elements.erase(key) == 0) {
                    error = "No such file or directory";
                    return false;
                }
            }
        } else if (what == "element" && table.sets.count(object) != 0) {
            for (const std::string& value : braced(rest)) {
                if (verb == "add") {
                    table.sets[object].insert(value);
                } else if (table.sets[object].erase(value) == 0) {
                    error = "No such file or directory";
                    return false;
                }
            }
        } else {
            error = line;
            return false;
        }
        return true;
    }

    Tables tables_;
};

}  // namespace nfttest
