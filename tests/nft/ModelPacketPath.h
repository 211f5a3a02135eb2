// One IPv4 packet through the tables a ModelKernel holds, as nf_tables runs them: the
// tables' base chains of the packet's hook in priority order, each line's tests left to
// right, jumps that return when their chain ends, accept ending a table and drop or
// reject ending the packet, "return" ending its chain, verdict maps looked up by the
// packet's fields. The rule a packet met is the number in the comment of the first line
// that decided it, or of the element whose verdict chain decided it. Knows the expressions the
// enforcing ipfw writes for stateless rules; anything else is named in `unknown` and never matches.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "ModelKernel.h"
#include "ipfwsim/KernelLog.h"
#include "ipfwsim/Packet.h"
#include "ipfwsim/Rule.h"

namespace nfttest {

struct PathVerdict {
    uint32_t rule = ipfwsim::kDefaultRuleNumber;
    std::string action = "Accept";
    std::string unknown;  // the first expression the model could not read
    bool looked = false;  // decided by an element of a verdict map
};

class PacketPath {
public:
    // `local`: the addresses "fib ... type local" finds on this host.
    PacketPath(const ModelKernel& kernel, const ipfwsim::Packet& packet,
               std::vector<uint32_t> local = {})
        : kernel_(kernel), packet_(packet), local_(std::move(local)) {}

    PathVerdict run() {
        const std::string hook = packet_.outbound ? "output" : "prerouting";
        for (const std::string& table : kernel_.tableNames()) {
            table_ = table;
            if (chain(hook, 0) == End::Drop) {
                break;
            }
        }
        return verdict_;
    }

private:
    // Back: the chain returns at once.
    enum class End { Return, Accept, Drop, Back };

    End chain(const std::string& name, int depth) {
        const std::vector<ipfwnft::KernelRule>* rules = kernel_.rulesOf(table_, name);
        if (rules == nullptr || depth > 16) {
            verdict_.unknown = "chain " + name;
            return End::Drop;
        }
        for (const ipfwnft::KernelRule& rule : *rules) {
            const End end = line(rule.text, depth);
            if (end == End::Back) {
                return End::Return;
            }
            if (end != End::Return) {
                return end;
            }
        }
        return End::Return;
    }

    // The packet's value of one field of a map's key, as the map's elements write it.
    std::string field(const std::string& name) {
        const auto quad = [](uint32_t address) {
            return std::to_string(address >> 24) + "." + std::to_string((address >> 16) & 255) +
                   "." + std::to_string((address >> 8) & 255) + "." + std::to_string(address & 255);
        };
        if (name == "meta l4proto") {
            return std::to_string(packet_.flow.proto);
        }
        if (name == "ip saddr" || name == "ip daddr") {
            return quad(name == "ip saddr" ? packet_.flow.srcAddress : packet_.flow.dstAddress);
        }
        if (name == "th sport" || name == "th dport") {
            // Keys with ports also hold TCP or UDP, so another protocol's bytes never match.
            return std::to_string(!hasPorts()          ? 0
                                  : name == "th sport" ? packet_.flow.srcPort
                                                       : packet_.flow.dstPort);
        }
        verdict_.unknown = verdict_.unknown.empty() ? name : verdict_.unknown;
        return "?";
    }

    // "FIELD . FIELD vmap @MAP": the element of the packet's key, its verdict chain run as
    // the element's rule.
    End lookup(const std::string& text, size_t vmap, int depth) {
        const ModelKernel::Map* map = kernel_.mapOf(table_, text.substr(vmap + 7));
        if (map == nullptr) {
            verdict_.unknown = "map " + text.substr(vmap + 7);
            return End::Drop;
        }
        std::string key;
        const std::string expression = text.substr(0, vmap);
        for (size_t at = 0; at < expression.size();) {
            size_t dot = expression.find(" . ", at);
            dot = dot == std::string::npos ? expression.size() : dot;
            key += (key.empty() ? "" : " . ") + field(expression.substr(at, dot - at));
            at = dot + 3;
        }
        const auto found = map->elements.find(key);
        if (found == map->elements.end()) {
            return End::Return;
        }
        const std::vector<std::string> words = tokens(found->second);
        elementRule_ = words.size() > 1 && words[0] == "comment" ? words[1] : std::string();
        elementDepth_ = depth + 1;
        const End end = chain(words.back(), depth + 1);
        elementRule_.clear();
        return end;
    }

    // Words, with "{ a, b }" and quoted text each one word.
    static std::vector<std::string> tokens(const std::string& text) {
        std::vector<std::string> words;
        std::string word;
        char closing = 0;
        for (char c : text) {
            if (closing == 0 && (c == '{' || c == '"') && word.empty()) {
                closing = c == '{' ? '}' : '"';
                word += c;
                continue;
            }
            if (closing == 0 && c == ' ') {
                if (!word.empty()) {
                    words.push_back(word);
                }
                word.clear();
                continue;
            }
            word += c;
            closing = c == closing ? 0 : closing;
        }
        if (!word.empty()) {
            words.push_back(word);
        }
        return words;
    }

    static uint32_t number(const std::string& text) {
        if (text.find('.') == std::string::npos) {
            return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 0));
        }
        uint32_t value = 0;
        const char* at = text.c_str();
        for (int part = 0; part < 4; ++part) {
            char* end = nullptr;
            value = value << 8 | static_cast<uint32_t>(std::strtoul(at, &end, 10));
            at = *end == '.' ? end + 1 : end;
        }
        return value;
    }

    // Whether `value` is in `expression`: one value, "a/len", or "{ a, b-c }".
    static bool holds(const std::string& expression, uint32_t value) {
        const size_t slash = expression.find('/');
        if (slash != std::string::npos) {
            const int length = std::atoi(expression.c_str() + slash + 1);
            const uint32_t mask = length == 0 ? 0 : ~0u << (32 - length);
            return (value & mask) == number(expression.substr(0, slash));
        }
        std::string inside = expression;
        if (!inside.empty() && inside[0] == '{') {
            inside = inside.substr(1, inside.size() - 2);
        }
        size_t at = 0;
        while (at < inside.size()) {
            size_t comma = inside.find(',', at);
            comma = comma == std::string::npos ? inside.size() : comma;
            std::string element = inside.substr(at, comma - at);
            element.erase(0, element.find_first_not_of(' '));
            element.erase(element.find_last_not_of(' ') + 1);
            const size_t dash = element.find('-');
            const uint32_t low = number(element.substr(0, dash));
            const uint32_t high =
                dash == std::string::npos ? low : number(element.substr(dash + 1));
            if (value >= low && value <= high) {
                return true;
            }
            at = comma + 1;
        }
        return false;
    }

    static bool interfaceIs(const std::string& quoted, const std::string& name) {
        const std::string wanted = quoted.substr(1, quoted.size() - 2);
        if (!wanted.empty() && wanted.back() == '*') {
            return name.compare(0, wanted.size() - 1, wanted, 0, wanted.size() - 1) == 0;
        }
        return wanted == name;
    }

    bool hasPorts() const {
        return packet_.flow.proto == ipfwsim::kProtoTcp || packet_.flow.proto == ipfwsim::kProtoUdp;
    }

    // "[!=] VALUE" at `at` against `value`.
    bool compare(const std::vector<std::string>& words, size_t& at, uint32_t value) const {
        const bool negated = words[at] == "!=";
        at += negated ? 1 : 0;
        return holds(words[at++], value) != negated;
    }

    // "& MASK ==|!= VALUE" at `at` against `value`.
    static bool masked(const std::vector<std::string>& words, size_t& at, uint32_t value) {
        const uint32_t mask = number(words[at + 1]);
        const bool equal = (value & mask) == number(words[at + 3]);
        const bool negated = words[at + 2] == "!=";
        at += 4;
        return equal != negated;
    }

    // "NAME exists|missing" at `at` against the option bits `present`.
    static bool optionTest(const std::vector<std::string>& words, size_t& at,
                           const std::map<std::string, uint32_t>& bits, uint32_t present) {
        const auto bit = bits.find(words[at]);
        const bool exists = bit != bits.end() && (present & bit->second) != 0;
        const bool wanted = words[at + 1] == "exists";
        at += 2;
        return bit != bits.end() && exists == wanted;
    }

    bool portTest(const std::string& field, const std::vector<std::string>& words, size_t& at) {
        const uint16_t port = field == "sport" ? packet_.flow.srcPort : packet_.flow.dstPort;
        return hasPorts() && compare(words, at, port);
    }

    // One test at `at` (its first word read already); false when it fails.
    bool test(const std::string& word, const std::vector<std::string>& words, size_t& at) {
        const std::string next = at < words.size() ? words[at++] : std::string();
        if (word == "meta" && next == "mark" && words[at] == "&") {
            return masked(words, at, mark_);
        }
        if (word == "meta" && next == "mark" && words[at] == "set") {
            const uint32_t operand = number(words[at + 4]);
            mark_ = words[at + 3] == "|" ? mark_ | operand : mark_ & operand;
            at += 5;
            return true;
        }
        if (word == "meta" && next == "nfproto") {
            return words[at++] == "ipv4";
        }
        if (word == "meta" && next == "l4proto") {
            return compare(words, at, packet_.flow.proto);
        }
        if (word == "numgen" && words[at + 2] == "offset") {
            const std::string set = words[at + 3];
            const bool negated = words[at + 4] == "!=";
            at += negated ? 6 : 5;
            return (kernel_.elements(table_, "enabled_sets").count(set) != 0) != negated;
        }
        if (word == "ip" && (next == "saddr" || next == "daddr")) {
            const uint32_t address =
                next == "saddr" ? packet_.flow.srcAddress : packet_.flow.dstAddress;
            return words[at] == "&" ? masked(words, at, address) : compare(words, at, address);
        }
        if ((word == "tcp" || word == "udp") && (next == "sport" || next == "dport")) {
            const uint8_t proto = word == "tcp" ? ipfwsim::kProtoTcp : ipfwsim::kProtoUdp;
            return portTest(next, words, at) && packet_.flow.proto == proto;
        }
        if (word == "th" && (next == "sport" || next == "dport")) {
            return portTest(next, words, at);
        }
        if (word == "tcp" && next == "flags") {
            return masked(words, at, packet_.tcpFlags) && packet_.flow.proto == ipfwsim::kProtoTcp;
        }
        if (word == "icmp" && next == "type") {
            return compare(words, at, packet_.icmpType) && packet_.flow.proto == 1;
        }
        if (word == "tcp" && next == "option") {
            return optionTest(words, at,
                              {{"maxseg", 1}, {"window", 2}, {"sack-perm", 4}, {"timestamp", 8}},
                              packet_.tcpOptions) &&
                   packet_.flow.proto == ipfwsim::kProtoTcp;
        }
        if (word == "ip" && next == "option") {
            return optionTest(words, at, {{"ssrr", 1}, {"lsrr", 2}, {"rr", 4}}, packet_.ipOptions);
        }
        if (word == "@nh,8,8") {
            --at;  // the TOS byte: "& MASK == VALUE" follows at once
            return masked(words, at, packet_.ipTos);
        }
        if (word == "fib" && words[at] == "type") {
            const uint32_t address =
                next == "saddr" ? packet_.flow.srcAddress : packet_.flow.dstAddress;
            const bool negated = words[at + 1] == "!=";
            at += negated ? 3 : 2;
            const bool local = std::find(local_.begin(), local_.end(), address) != local_.end();
            return local != negated;
        }
        if (word == "iifname" || word == "oifname") {
            const bool ours = (word == "oifname") == packet_.outbound;
            const bool negated = next == "!=";
            const std::string& name = negated ? words[at++] : next;
            return interfaceIs(name, ours ? packet_.iface : std::string()) != negated;
        }
        verdict_.unknown = verdict_.unknown.empty() ? word + " " + next : verdict_.unknown;
        return false;
    }

    // The first line of a packet's path that decides it names the rule and its action.
    // A line of a verdict chain decides for its element's rule; reset_action, a chain
    // deeper, leaves the decision to the line that jumped to it.
    void decide(const std::vector<std::string>& words, const std::string& action, int depth) {
        std::string comment = depth == elementDepth_ ? elementRule_ : std::string();
        for (size_t i = 0; i + 1 < words.size(); ++i) {
            comment = words[i] == "comment" ? words[i + 1] : comment;
        }
        if (!comment.empty() && !decided_) {
            decided_ = true;
            verdict_.looked = depth == elementDepth_ && !elementRule_.empty();
            verdict_.rule = number(comment.substr(1));
            verdict_.action = action;
        }
    }

    End line(const std::string& text, int depth) {
        const size_t vmap = text.find(" vmap @");
        if (vmap != std::string::npos) {
            return lookup(text, vmap, depth);
        }
        const std::vector<std::string> words = tokens(text);
        size_t at = 0;
        while (at < words.size()) {
            const std::string& word = words[at++];
            if (word == "comment") {
                ++at;
            } else if (word == "counter") {
            } else if (word == "log") {
                at += 4;  // group N prefix "TEXT"
            } else if (word == "accept" || word == "drop") {
                decide(words, word == "accept" ? "Accept" : "Deny", depth);
                return word == "accept" ? End::Accept : End::Drop;
            } else if (word == "reject" && words[at + 1] == "icmp") {
                decide(words,
                       ipfwsim::actionLogWord(
                           ipfwsim::Action{ipfwsim::ActionKind::Reject, number(words[at + 2])}),
                       depth);
                return End::Drop;
            } else if (word == "reject") {
                return End::Drop;
            } else if (word == "return") {
                return End::Back;
            } else if (word == "jump") {
                const End end = chain(words[at++], depth + 1);
                if (end != End::Return) {
                    decide(words, "Reset", depth);  // only reset_action ends a rule's jump
                    return end;
                }
            } else if (!test(word, words, at)) {
                return End::Return;
            }
        }
        return End::Return;
    }

    const ModelKernel& kernel_;
    const ipfwsim::Packet& packet_;
    const std::vector<uint32_t> local_;
    std::string table_;
    uint32_t mark_ = 0;
    bool decided_ = false;
    // The quoted rule number of the element whose verdict chain runs, or "".
    std::string elementRule_;
    int elementDepth_ = -1;
    PathVerdict verdict_;
};

}  // namespace nfttest
