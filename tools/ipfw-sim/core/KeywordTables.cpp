#include "ipfwsim/KeywordTables.h"

#include <set>

namespace ipfwsim {

const KeywordList& tcpFlagKeywords() {
    static const KeywordList list = {{"syn", kTcpSyn}, {"fin", kTcpFin}, {"ack", kTcpAck},
                                     {"psh", kTcpPsh}, {"rst", kTcpRst}, {"urg", kTcpUrg}};
    return list;
}

const KeywordList& tcpOptionKeywords() {
    static const KeywordList list = {{"mss", 0x01},  {"maxseg", 0x01}, {"window", 0x02},
                                     {"sack", 0x04}, {"ts", 0x08},     {"timestamp", 0x08},
                                     {"cc", 0x10}};
    return list;
}

const KeywordList& ipOptionKeywords() {
    static const KeywordList list = {{"ssrr", 0x01}, {"lsrr", 0x02}, {"rr", 0x04}, {"ts", 0x08}};
    return list;
}

const KeywordList& ipTosKeywords() {
    // mincost and ecntransport share a bit; the first name is the one listed.
    static const KeywordList list = {{"lowdelay", 0x10},    {"throughput", 0x08},
                                     {"reliability", 0x04}, {"mincost", 0x02},
                                     {"congestion", 0x01},  {"ecntransport", 0x02}};
    return list;
}

const KeywordList& unreachCodeKeywords() {
    static const KeywordList list = {
        {"net", 0},      {"host", 1},           {"protocol", 2},         {"port", 3},
        {"needfrag", 4}, {"srcfail", 5},        {"net-unknown", 6},      {"host-unknown", 7},
        {"isolated", 8}, {"net-prohib", 9},     {"host-prohib", 10},     {"tosnet", 11},
        {"toshost", 12}, {"filter-prohib", 13}, {"host-precedence", 14}, {"precedence-cutoff", 15}};
    return list;
}

int lookupKeyword(const KeywordList& list, const std::string& word) {
    for (const Keyword& entry : list) {
        if (!word.empty() && word == entry.name) {
            return static_cast<int>(entry.value);
        }
    }
    return -1;
}

const char* keywordName(const KeywordList& list, uint32_t value) {
    for (const Keyword& entry : list) {
        if (entry.value == value) {
            return entry.name;
        }
    }
    return nullptr;
}

bool isUnmodelledAction(const std::string& word) {
    static const std::set<std::string> words = {
        "pipe",   "queue",    "divert", "tee",    "netgraph",   "ngtee",    "fwd",     "forward",
        "reset6", "unreach6", "//",     "nat",    "setfib",     "setdscp",  "call",    "return",
        "reass",  "eaction",  "abort",  "abort6", "tcp-setmss", "nat64lsn", "nat64stl"};
    return words.count(word) != 0;
}

bool isUnmodelledOption(const std::string& word) {
    static const std::set<std::string> words = {"uid",
                                                "gid",
                                                "jail",
                                                "limit",
                                                "bridged",
                                                "layer2",
                                                "diverted",
                                                "diverted-loopback",
                                                "diverted-output",
                                                "fragment",
                                                "frag",
                                                "iplen",
                                                "ipid",
                                                "ipprecedence",
                                                "ipttl",
                                                "ipversion",
                                                "ipver",
                                                "tcpdatalen",
                                                "tcpseq",
                                                "tcpack",
                                                "tcpwin",
                                                "mac-type",
                                                "verrevpath",
                                                "versrcreach",
                                                "antispoof",
                                                "ipsec",
                                                "icmp6type",
                                                "icmp6types",
                                                "ext6hdr",
                                                "flow-id",
                                                "ipv6",
                                                "ip6",
                                                "ipv4",
                                                "ip4",
                                                "dst-ipv6",
                                                "dst-ip6",
                                                "src-ipv6",
                                                "src-ip6",
                                                "//",
                                                "or",
                                                "|",
                                                "{",
                                                "(",
                                                "}",
                                                ")",
                                                "tagged",
                                                "lookup",
                                                "sockarg",
                                                "fib",
                                                "dscp",
                                                "flow",
                                                "record-state",
                                                "set-limit",
                                                "defer-action",
                                                "defer-immediate-action",
                                                "tcpmss",
                                                "src-addr",
                                                "dst-addr"};
    return words.count(word) != 0;
}

}  // namespace ipfwsim
