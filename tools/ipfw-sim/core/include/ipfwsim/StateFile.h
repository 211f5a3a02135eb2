#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ipfwsim/Rule.h"
#include "ipfwsim/RuleLister.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// A keep-state entry; it names its parent rule by number and by position among the
// rules that share that number.
struct DynamicState {
    uint32_t ruleNumber = 0;
    uint32_t ordinal = 0;
    uint8_t proto = 0;
    uint32_t srcAddress = 0;
    uint16_t srcPort = 0;
    uint32_t dstAddress = 0;
    uint16_t dstPort = 0;
    int64_t expires = 0;
    Counters counters;
};

struct StateHeader {
    // How many of this state's changes an enforcing back end has brought into the kernel
    // (0: none yet; it also marks a change under way). The simulator only keeps it; it
    // lives in the first line so that it can be written in place.
    uint32_t kernelGeneration = 0;
    uint32_t disabledSets = 0;
    bool verbose = true;
    uint64_t packetSerial = 0;
    Counters defaultRule;
    // Largest counters of any static rule, so that "show N" can size its columns
    // without reading every rule.
    Counters widest;
    std::vector<DynamicState> dynamic;
};

// The bytes that stood at `offset` before a write in place.
struct StatePatch {
    size_t offset = 0;
    std::string bytes;
};

struct StoredRule {
    Rule rule;
    Counters counters;
    uint32_t logLeft = 0;
};

// The state file, read through a view of its bytes. Layout:
//   line 1      fixed-width: where the rules begin, where their sorted part ends, and the
//               kernel generation (a first line of format 1, without it, reads as 0)
//   header      sets, switches, default-rule counters, dynamic states
//   sorted part rule lines in number order, found by binary search
//   overflow    rule lines appended since the last rewrite, in arrival order (bounded)
// A rule line starts with its zero-padded number, so lines compare by their first bytes.
// A deleted rule's line may stay as a tombstone of the same length, its number kept and
// a "-" after it, until the next rewrite; nothing reads it as a rule. A last line
// without its newline is an interrupted append and does not count.
class StateFile {
public:
    static constexpr size_t kOverflowLimit = 256;

    explicit StateFile(std::string_view content) : content_(content) {}
    // A file whose first line reads `firstLine` instead (of the same length): the file as
    // it stood before writes that only appended and rewrote first-line fields.
    StateFile(std::string_view content, std::string_view firstLine)
        : content_(content), firstLine_(firstLine) {}
    // The file as it stood before writes in place that `patches` undo: `content` with
    // each patch's bytes at its offset, read without a copy of the unpatched bulk. The
    // patches are sorted, apart, within `content`, and hold a newline exactly where
    // `content` does, so that every line keeps its place.
    StateFile(std::string_view content, const std::vector<StatePatch>& patches);

    Status open();
    Status readHeader(StateHeader& header, bool withDynamic) const;
    // Rule lines numbered within [low, high] in listing order.
    std::vector<std::string_view> linesInRange(uint32_t low, uint32_t high) const;
    // The same, each with its number.
    std::vector<std::pair<long, std::string_view>> numberedLinesInRange(uint32_t low,
                                                                        uint32_t high) const;
    // Whether any rule is numbered within [low, high]; stops at the first.
    bool holdsRulesIn(uint32_t low, uint32_t high) const;
    // Where `line`, a view into this file, starts.
    size_t offsetOf(std::string_view line) const {
        return static_cast<size_t>(line.data() - content_.data());
    }
    uint32_t lastNumber() const;
    size_t overflowLines() const;
    // True when a rule with this number appended now would still be in order.
    bool appendKeepsOrder(uint32_t number) const;
    size_t rulesAt() const { return rulesAt_; }
    // The rule lines, tombstones included, as stored.
    std::string_view rulesText() const;
    size_t end() const { return end_; }
    size_t sortedEnd() const { return sortedEnd_; }
    uint32_t kernelGeneration() const { return kernelGeneration_; }
    // Where the value of header line `key` starts ("disabled-sets" gives the offset of its
    // eight hex digits), or npos.
    size_t headerValueAt(std::string_view key) const;
    // Whether the first line has room for the kernel generation (format 2).
    bool holdsKernelGeneration() const { return version_ >= 2; }
    Status readAll(StateHeader& header, std::vector<StoredRule>& rules) const;

    static std::string format(const StateHeader& header, const std::vector<StoredRule>& rules);
    // The same from rule lines already formatted, in order, and their largest counters.
    static std::string assemble(const StateHeader& header, const Counters& widest,
                                const std::string& ruleText);
    static std::string formatRuleLine(const StoredRule& stored);
    static bool parseRuleLine(std::string_view line, StoredRule& stored);
    static std::string layoutLine(size_t rulesAt, size_t sortedEnd, uint32_t kernelGeneration = 0);
    // The same number of bytes as `line`, marking its rule deleted.
    static std::string tombstone(std::string_view line);
    static bool isTombstone(std::string_view line);
    static constexpr size_t kSortedEndField = 48;  // offset of the sorted-end digits
    static constexpr size_t kKernelField = 66;     // offset of the kernel generation digits
    static constexpr size_t kOffsetDigits = 10;

private:
    template <typename Visit>
    bool visitLinesInRange(uint32_t low, uint32_t high, Visit visit) const;
    size_t lineStart(size_t pos) const;
    size_t lineEnd(size_t pos) const;
    size_t lowerBound(uint32_t number) const;
    Status corrupt(const std::string& what) const;
    // The `length` bytes from `start`, a line's start, patched.
    std::string_view text(size_t start, size_t length) const;

    // The lines that patches touched, whole and patched, by where they start; and the
    // rule lines patched, put together only when asked for. Shared, so that a copy of
    // this file reads the same lines.
    struct PatchedLine {
        size_t start;
        std::string text;
    };
    struct Overlay {
        std::vector<PatchedLine> lines;
        std::string rulesText;  // of [rulesTextFrom, rulesTextTo)
        size_t rulesTextFrom = 0;
        size_t rulesTextTo = 0;
    };
    std::shared_ptr<Overlay> overlay_;

    std::string_view content_;
    std::string_view firstLine_;
    int version_ = 0;
    uint32_t kernelGeneration_ = 0;
    size_t rulesAt_ = 0;
    size_t sortedEnd_ = 0;
    size_t end_ = 0;  // end of the last complete line
};

// Rule number of a rule line (its first five digits), or -1.
long ruleLineNumber(std::string_view line);

}  // namespace ipfwsim
