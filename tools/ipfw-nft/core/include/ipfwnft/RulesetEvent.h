#pragma once

#include <cstdint>
#include <string>

namespace ipfwnft {

// One change of the kernel's nftables ruleset as the kernel announces it to watchers, in
// the order of the transaction that made it; every transaction ends with a Generation
// event that names the process that committed it.
struct RulesetEvent {
    enum class Kind {
        TableAdded,  // or changed: the kernel announces both alike
        TableDeleted,
        ChainAdded,  // or changed
        ChainDeleted,
        RuleAdded,
        RuleDeleted,
        OtherChange,  // a set, an element, an object in `table`
        Generation,
    };
    Kind kind = Kind::OtherChange;
    std::string table;  // with its family, "inet ipfw_s0"
    std::string chain;
    uint64_t handle = 0;
    // Of an added rule, what ipfw reads of a listed line: "jump CHAIN" for a rule that
    // only jumps, else its comment as nft lists it ("comment \"3100\""), else nothing.
    std::string text;
    // Of a Generation: who committed the transaction, and the netlink port of the socket
    // it came through.
    int64_t pid = 0;
    std::string process;
    uint32_t port = 0;
};

}  // namespace ipfwnft
