// The table "inet ipfw" as the kernel keeps it, for tests on strings: it runs the
// statements the enforcing ipfw writes, each script as one transaction that either
// applies whole or changes nothing, refusing what nftables refuses (a rule in a missing
// chain, a jump to one, deleting a chain that is used or not empty, a missing element).
#pragma once

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

    ipfwsim::Status apply(const std::string& script) override {
        Table next = table_;
        std::string error;
        if (refuse) {
            error = "Operation not permitted";
        } else if (!run(script, next, error)) {
            error = "Could not process rule: " + error;
        }
        if (!error.empty()) {
            return ipfwsim::Status::failure(ipfwsim::kExitUnavailable, "nftables: " + error);
        }
        table_ = next;
        scripts.push_back(script);
        return ipfwsim::Status::success();
    }

    // As "nft flush ruleset" behind the back of ipfw.
    void flushRuleset() { table_ = Table(); }

    // The lines a packet meets from `chain` on, jumps followed.
    std::vector<std::string> walk(const std::string& chain) const {
        std::vector<std::string> lines;
        const auto found = table_.chains.find(chain);
        if (found == table_.chains.end()) {
            return lines;
        }
        for (const std::string& line : found->second) {
            if (line.rfind("jump ", 0) == 0 && table_.chains.count(line.substr(5)) != 0) {
                const std::vector<std::string> inner = walk(line.substr(5));
                lines.insert(lines.end(), inner.begin(), inner.end());
            } else {
                lines.push_back(line);
            }
        }
        return lines;
    }
    std::set<std::string> elements(const std::string& set) const {
        const auto found = table_.sets.find(set);
        return found == table_.sets.end() ? std::set<std::string>() : found->second;
    }
    size_t chainCount() const { return table_.chains.size(); }

private:
    struct Table {
        bool exists = false;
        std::map<std::string, std::vector<std::string>> chains;
        std::map<std::string, std::set<std::string>> sets;
    };

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
        for (const auto& [name, lines] : table.chains) {
            for (const std::string& line : lines) {
                if (jumpTarget(line) == chain) {
                    return true;
                }
            }
        }
        return false;
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

    static bool run(const std::string& script, Table& table, std::string& error) {
        std::istringstream in(script);
        std::string chain;
        std::string set;
        bool inBlock = false;
        for (std::string line; std::getline(in, line);) {
            if (!inBlock && !statement(line, table, inBlock, error)) {
                return false;
            }
            if (!inBlock || line == "table inet ipfw {") {
                continue;
            }
            if (line == "}") {
                inBlock = false;
            } else if (line.rfind("\tchain ", 0) == 0) {
                chain = line.substr(7, line.size() - 9);
                table.chains[chain];
            } else if (line.rfind("\tset ", 0) == 0) {
                set = line.substr(5, line.size() - 7);
                table.sets[set];
            } else if (line == "\t}") {
                chain.clear();
                set.clear();
            } else if (!set.empty() && line.find("elements = {") != std::string::npos) {
                table.sets[set] = braced(line);
            } else if (!chain.empty() && line.rfind("\t\ttype ", 0) != 0) {
                table.chains[chain].push_back(line.substr(2));
            }
        }
        // Jumps are checked once all chains of the script exist, as the kernel does.
        for (const auto& [name, lines] : table.chains) {
            for (const std::string& line : lines) {
                const std::string target = jumpTarget(line);
                if (!target.empty() && table.chains.count(target) == 0) {
                    error = "jump to missing chain " + target;
                    return false;
                }
            }
        }
        return true;
    }

    static bool statement(const std::string& line, Table& table, bool& block,
                          std::string& error) {
        const std::string prefix = " inet ipfw ";
        auto rest = [&](const std::string& verb) -> std::string {
            return line.rfind(verb + prefix, 0) == 0 ? line.substr(verb.size() + prefix.size())
                                                     : std::string(1, '\0');
        };
        auto name = [](const std::string& text) { return text.substr(0, text.find(' ')); };
        std::string args;
        if (line == "table inet ipfw") {
            table.exists = true;
        } else if (line == "delete table inet ipfw") {
            table = Table();
        } else if (line == "table inet ipfw {") {
            table.exists = true;
            block = true;
        } else if (!table.exists) {
            error = "No such file or directory";
            return false;
        } else if ((args = rest("add chain"))[0] != '\0') {
            table.chains[args];
        } else if ((args = rest("flush chain"))[0] != '\0' && table.chains.count(args) != 0) {
            table.chains[args].clear();
        } else if ((args = rest("delete chain"))[0] != '\0' && table.chains.count(args) != 0 &&
                   table.chains[args].empty() && !referenced(table, args)) {
            table.chains.erase(args);
        } else if ((args = rest("add rule"))[0] != '\0' && table.chains.count(name(args)) != 0) {
            table.chains[name(args)].push_back(args.substr(name(args).size() + 1));
        } else if ((args = rest("add element"))[0] != '\0' && table.sets.count(name(args)) != 0) {
            for (const std::string& value : braced(args)) {
                table.sets[name(args)].insert(value);
            }
        } else if ((args = rest("delete element"))[0] != '\0' &&
                   table.sets.count(name(args)) != 0) {
            for (const std::string& value : braced(args)) {
                if (table.sets[name(args)].erase(value) == 0) {
                    error = "No such file or directory";
                    return false;
                }
            }
        } else if (!line.empty()) {
            error = line;
            return false;
        }
        return true;
    }

    Table table_;
};

}  // namespace nfttest
