#include "ipfwsim/StateFile.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "ipfwsim/RuleCodec.h"

namespace ipfwsim {
namespace {

constexpr std::string_view kMagicV1 = "ipfw-sim-state 1 rules-at=";
constexpr std::string_view kMagic = "ipfw-sim-state 2 rules-at=";
constexpr size_t kLayoutV1Size = 59;  // "ipfw-sim-state 1 rules-at=N sorted-end=N\n"

template <typename T>
bool parseNumber(std::string_view text, T& value, int base = 10) {
    if (text.empty()) {
        return false;
    }
    auto result = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

std::vector<std::string_view> fields(std::string_view line) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    while (start <= line.size()) {
        size_t end = line.find(' ', start);
        if (end == std::string_view::npos) {
            end = line.size();
        }
        parts.push_back(line.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

bool parseDynamicLine(const std::vector<std::string_view>& f, DynamicState& state) {
    return f.size() == 11 && parseNumber(f[1], state.ruleNumber) &&
           parseNumber(f[2], state.ordinal) && parseNumber(f[3], state.proto) &&
           parseNumber(f[4], state.srcAddress, 16) && parseNumber(f[5], state.srcPort) &&
           parseNumber(f[6], state.dstAddress, 16) && parseNumber(f[7], state.dstPort) &&
           parseNumber(f[8], state.expires) && parseNumber(f[9], state.counters.packets) &&
           parseNumber(f[10], state.counters.bytes);
}

bool parseHeaderLine(std::string_view line, StateHeader& header, bool withDynamic) {
    std::vector<std::string_view> f = fields(line);
    const std::string_view key = f[0];
    if (key == "disabled-sets") {
        return f.size() == 2 && parseNumber(f[1], header.disabledSets, 16);
    }
    if (key == "verbose") {
        header.verbose = f.size() == 2 && f[1] == "1";
        return f.size() == 2 && (f[1] == "0" || f[1] == "1");
    }
    if (key == "packet-serial") {
        return f.size() == 2 && parseNumber(f[1], header.packetSerial);
    }
    if (key == "default-rule" || key == "widest") {
        Counters& counters = key == "widest" ? header.widest : header.defaultRule;
        return f.size() == 3 && parseNumber(f[1], counters.packets) &&
               parseNumber(f[2], counters.bytes);
    }
    if (key == "dynamic") {
        DynamicState state;
        if (!parseDynamicLine(f, state)) {
            return false;
        }
        if (withDynamic) {
            header.dynamic.push_back(state);
        }
        return true;
    }
    return false;
}

std::string counterText(const Counters& counters) {
    return std::to_string(counters.packets) + " " + std::to_string(counters.bytes);
}

std::string dynamicLine(const DynamicState& s) {
    char text[160];
    std::snprintf(text, sizeof(text), "dynamic %u %u %u %08x %u %08x %u %lld %llu %llu\n",
                  s.ruleNumber, s.ordinal, s.proto, s.srcAddress, s.srcPort, s.dstAddress,
                  s.dstPort, static_cast<long long>(s.expires),
                  static_cast<unsigned long long>(s.counters.packets),
                  static_cast<unsigned long long>(s.counters.bytes));
    return text;
}

}  // namespace

long ruleLineNumber(std::string_view line) {
    uint32_t number = 0;
    if (line.size() < 6 || line[5] != ' ' || !parseNumber(line.substr(0, 5), number)) {
        return -1;
    }
    return number;
}

std::string StateFile::layoutLine(size_t rulesAt, size_t sortedEnd, uint32_t kernelGeneration) {
    char text[96];
    std::snprintf(text, sizeof(text),
                  "ipfw-sim-state 2 rules-at=%010zu sorted-end=%010zu kernel=%010u\n", rulesAt,
                  sortedEnd, kernelGeneration);
    return text;
}

std::string StateFile::tombstone(std::string_view line) {
    std::string text(line.substr(0, 6));
    text += '-';
    text.resize(line.size(), ' ');
    return text;
}

bool StateFile::isTombstone(std::string_view line) {
    return line.size() > 6 && line[6] == '-';
}

StateFile::StateFile(std::string_view content, const std::vector<StatePatch>& patches)
    : content_(content) {
    for (const StatePatch& patch : patches) {
        if (patch.bytes.empty()) {
            continue;
        }
        if (overlay_ == nullptr) {
            overlay_ = std::make_shared<Overlay>();
        }
        std::vector<PatchedLine>& lines = overlay_->lines;
        const size_t start = patch.offset == 0 ? 0 : content_.rfind('\n', patch.offset - 1) + 1;
        const size_t newline = content_.find('\n', patch.offset + patch.bytes.size() - 1);
        const size_t end = newline == std::string_view::npos ? content_.size() : newline + 1;
        const size_t lastEnd = lines.empty() ? 0 : lines.back().start + lines.back().text.size();
        if (lines.empty() || start >= lastEnd) {
            lines.push_back(PatchedLine{start, std::string(content_.substr(start, end - start))});
        } else if (end > lastEnd) {
            lines.back().text += content_.substr(lastEnd, end - lastEnd);  // a patch spans both
        }
        PatchedLine& line = lines.back();
        line.text.replace(patch.offset - line.start, patch.bytes.size(), patch.bytes);
    }
}

std::string_view StateFile::text(size_t start, size_t length) const {
    if (overlay_ != nullptr) {
        const std::vector<PatchedLine>& lines = overlay_->lines;
        auto after =
            std::upper_bound(lines.begin(), lines.end(), start,
                             [](size_t at, const PatchedLine& line) { return at < line.start; });
        if (after != lines.begin()) {
            const PatchedLine& line = *std::prev(after);
            if (start < line.start + line.text.size()) {
                return std::string_view(line.text).substr(start - line.start, length);
            }
        }
    }
    return content_.substr(start, length);
}

// Patched, the rule lines are put together once, for the rare reader of them all.
std::string_view StateFile::rulesText() const {
    if (overlay_ == nullptr) {
        return content_.substr(rulesAt_, end_ - rulesAt_);
    }
    Overlay& overlay = *overlay_;
    if (overlay.rulesTextFrom != rulesAt_ || overlay.rulesTextTo != end_) {
        overlay.rulesText = std::string(content_.substr(rulesAt_, end_ - rulesAt_));
        for (const PatchedLine& line : overlay.lines) {
            const size_t from = std::max(line.start, rulesAt_);
            const size_t to = std::min(line.start + line.text.size(), end_);
            if (from < to) {
                overlay.rulesText.replace(from - rulesAt_, to - from, line.text, from - line.start,
                                          to - from);
            }
        }
        overlay.rulesTextFrom = rulesAt_;
        overlay.rulesTextTo = end_;
    }
    return overlay.rulesText;
}

Status StateFile::corrupt(const std::string& what) const {
    return Status::failure(kExitDataErr, "state file is corrupt: " + what);
}

Status StateFile::open() {
    const std::string_view head = firstLine_.empty() ? text(0, content_.size()) : firstLine_;
    size_t layoutSize = layoutLine(0, 0).size();
    if (head.substr(0, kMagic.size()) == kMagic) {
        version_ = 2;
    } else if (head.substr(0, kMagicV1.size()) == kMagicV1) {
        version_ = 1;
        layoutSize = kLayoutV1Size;
    } else {
        return corrupt("bad first line");
    }
    if (content_.size() < layoutSize || head.size() < layoutSize ||
        head.substr(kSortedEndField - 12, 12) != " sorted-end=" || head[layoutSize - 1] != '\n' ||
        (version_ == 2 && head.substr(kKernelField - 8, 8) != " kernel=")) {
        return corrupt("bad first line");
    }
    if (!parseNumber(head.substr(kMagic.size(), kOffsetDigits), rulesAt_) ||
        !parseNumber(head.substr(kSortedEndField, kOffsetDigits), sortedEnd_) ||
        (version_ == 2 &&
         !parseNumber(head.substr(kKernelField, kOffsetDigits), kernelGeneration_))) {
        return corrupt("bad offsets");
    }
    size_t lastNewline = content_.rfind('\n');
    end_ = lastNewline + 1;
    if (rulesAt_ < layoutSize || rulesAt_ > sortedEnd_ || sortedEnd_ > end_ ||
        (rulesAt_ > 0 && content_[rulesAt_ - 1] != '\n') ||
        (sortedEnd_ > 0 && content_[sortedEnd_ - 1] != '\n')) {
        return corrupt("offsets outside the file");
    }
    return Status::success();
}

Status StateFile::readHeader(StateHeader& header, bool withDynamic) const {
    header.kernelGeneration = kernelGeneration_;
    size_t pos = content_.find('\n') + 1;
    while (pos < rulesAt_) {
        size_t end = content_.find('\n', pos);
        std::string_view line = text(pos, end - pos);
        if (!withDynamic && line.substr(0, 8) == "dynamic ") {
            break;  // dynamic states come last and are not always needed
        }
        if (!parseHeaderLine(line, header, withDynamic)) {
            return corrupt("bad header line '" + std::string(line) + "'");
        }
        pos = end + 1;
    }
    return Status::success();
}

size_t StateFile::lineStart(size_t pos) const {
    while (pos > rulesAt_ && content_[pos - 1] != '\n') {
        --pos;
    }
    return pos;
}

size_t StateFile::lineEnd(size_t pos) const {
    return content_.find('\n', pos) + 1;
}

// First line of the sorted part whose number is not below `number`.
size_t StateFile::lowerBound(uint32_t number) const {
    size_t low = rulesAt_;
    size_t high = sortedEnd_;
    while (low < high) {
        size_t start = lineStart(low + (high - low) / 2);
        size_t next = lineEnd(start);
        if (ruleLineNumber(text(start, next - start)) < static_cast<long>(number)) {
            low = next;
        } else {
            high = start;
        }
    }
    return low;
}

// Calls `visit(number, line)` for each live rule line numbered within [low, high]: the
// sorted part from a binary search on, then the whole overflow. Stops when `visit`
// returns false; says whether it ran to the end.
template <typename Visit>
bool StateFile::visitLinesInRange(uint32_t low, uint32_t high, Visit visit) const {
    const auto inRange = [low, high](long number) {
        return number >= static_cast<long>(low) && number <= static_cast<long>(high);
    };
    for (size_t pos = lowerBound(low); pos < sortedEnd_;) {
        size_t next = lineEnd(pos);
        std::string_view line = text(pos, next - pos - 1);
        const long number = ruleLineNumber(line);
        if (number > static_cast<long>(high)) {
            break;
        }
        if (inRange(number) && !isTombstone(line) && !visit(number, line)) {
            return false;
        }
        pos = next;
    }
    for (size_t pos = sortedEnd_; pos < end_;) {
        size_t next = lineEnd(pos);
        std::string_view line = text(pos, next - pos - 1);
        const long number = ruleLineNumber(line);
        if (inRange(number) && !isTombstone(line) && !visit(number, line)) {
            return false;
        }
        pos = next;
    }
    return true;
}

std::vector<std::pair<long, std::string_view>> StateFile::numberedLinesInRange(
    uint32_t low, uint32_t high) const {
    std::vector<std::pair<long, std::string_view>> found;
    found.reserve(1024);  // a block of plug-in rules holds about as many
    visitLinesInRange(low, high, [&found](long number, std::string_view line) {
        found.emplace_back(number, line);
        return true;
    });
    // Lines of the sorted part come in order; only an overflow line can need placing, and
    // a range of thousands of rules should not pay for a sort it does not need.
    const auto byNumber = [](const auto& a, const auto& b) { return a.first < b.first; };
    if (!std::is_sorted(found.begin(), found.end(), byNumber)) {
        std::stable_sort(found.begin(), found.end(), byNumber);
    }
    return found;
}

std::vector<std::string_view> StateFile::linesInRange(uint32_t low, uint32_t high) const {
    std::vector<std::string_view> lines;
    for (const auto& entry : numberedLinesInRange(low, high)) {
        lines.push_back(entry.second);
    }
    return lines;
}

size_t StateFile::headerValueAt(std::string_view key) const {
    const std::string needle = std::string(key) + " ";
    for (size_t pos = content_.find('\n') + 1; pos > 0 && pos < rulesAt_; pos = lineEnd(pos)) {
        if (text(pos, needle.size()) == needle) {
            return pos + needle.size();
        }
    }
    return std::string_view::npos;
}

bool StateFile::holdsRulesIn(uint32_t low, uint32_t high) const {
    return !visitLinesInRange(low, high, [](long, std::string_view) { return false; });
}

uint32_t StateFile::lastNumber() const {
    long last = 0;
    // The last live line of the sorted part, past any tombstones at its end.
    for (size_t end = sortedEnd_; end > rulesAt_;) {
        size_t start = lineStart(end - 1);
        std::string_view line = text(start, end - start);
        if (!isTombstone(line)) {
            last = ruleLineNumber(line);
            break;
        }
        end = start;
    }
    for (size_t pos = sortedEnd_; pos < end_; pos = lineEnd(pos)) {
        std::string_view line = text(pos, lineEnd(pos) - pos);
        if (!isTombstone(line)) {
            last = std::max(last, ruleLineNumber(line));
        }
    }
    return last < 0 ? 0 : static_cast<uint32_t>(last);
}

size_t StateFile::overflowLines() const {
    return static_cast<size_t>(std::count(content_.begin() + static_cast<long>(sortedEnd_),
                                          content_.begin() + static_cast<long>(end_), '\n'));
}

// A marked line keeps its number and its place, so the order counts it.
bool StateFile::appendKeepsOrder(uint32_t number) const {
    if (sortedEnd_ != end_ || end_ != content_.size()) {
        return false;
    }
    if (sortedEnd_ == rulesAt_) {
        return true;
    }
    const size_t start = lineStart(sortedEnd_ - 1);
    return static_cast<long>(number) >= ruleLineNumber(text(start, sortedEnd_ - start));
}

Status StateFile::readAll(StateHeader& header, std::vector<StoredRule>& rules) const {
    Status status = readHeader(header, true);
    if (!status.ok()) {
        return status;
    }
    std::vector<StoredRule> overflow;
    for (size_t pos = rulesAt_; pos < end_;) {
        size_t next = lineEnd(pos);
        StoredRule stored;
        std::string_view line = text(pos, next - pos - 1);
        if (isTombstone(line)) {
            pos = next;
            continue;
        }
        if (!parseRuleLine(line, stored)) {
            return corrupt("bad rule line '" + std::string(line) + "'");
        }
        bool sorted = pos < sortedEnd_;
        if (sorted && !rules.empty() && rules.back().rule.number > stored.rule.number) {
            return corrupt("rules out of order at " + std::string(line.substr(0, 5)));
        }
        (sorted ? rules : overflow).push_back(std::move(stored));
        pos = next;
    }
    for (StoredRule& stored : overflow) {
        auto after =
            std::upper_bound(rules.begin(), rules.end(), stored.rule.number,
                             [](uint32_t n, const StoredRule& r) { return n < r.rule.number; });
        rules.insert(after, std::move(stored));
    }
    return Status::success();
}

std::string StateFile::formatRuleLine(const StoredRule& stored) {
    char head[96];
    std::snprintf(head, sizeof(head), "%05u %u %llu %llu %u ", stored.rule.number, stored.rule.set,
                  static_cast<unsigned long long>(stored.counters.packets),
                  static_cast<unsigned long long>(stored.counters.bytes), stored.logLeft);
    return head + encodeRule(stored.rule) + "\n";
}

bool StateFile::parseRuleLine(std::string_view line, StoredRule& stored) {
    std::vector<std::string_view> f = fields(line);
    if (f.size() < 6 || ruleLineNumber(line) <= 0 || !parseNumber(f[0], stored.rule.number) ||
        !parseNumber(f[1], stored.rule.set) || stored.rule.set > kReservedSet ||
        stored.rule.number > kHighestUserRule || !parseNumber(f[2], stored.counters.packets) ||
        !parseNumber(f[3], stored.counters.bytes) || !parseNumber(f[4], stored.logLeft)) {
        return false;
    }
    size_t bodyAt = static_cast<size_t>(f[5].data() - line.data());
    return decodeRule(line.substr(bodyAt), stored.rule);
}

std::string StateFile::format(const StateHeader& header, const std::vector<StoredRule>& rules) {
    Counters widest = header.defaultRule;
    std::string ruleText;
    for (const StoredRule& stored : rules) {
        widest.packets = std::max(widest.packets, stored.counters.packets);
        widest.bytes = std::max(widest.bytes, stored.counters.bytes);
        ruleText += formatRuleLine(stored);
    }
    return assemble(header, widest, ruleText);
}

std::string StateFile::assemble(const StateHeader& header, const Counters& widest,
                                const std::string& ruleText) {
    char disabled[32];
    std::snprintf(disabled, sizeof(disabled), "disabled-sets %08x\n", header.disabledSets);
    Counters widestWithDefault = widest;
    widestWithDefault.packets = std::max(widest.packets, header.defaultRule.packets);
    widestWithDefault.bytes = std::max(widest.bytes, header.defaultRule.bytes);
    std::string head = std::string(disabled) + "verbose " + (header.verbose ? "1" : "0") +
                       "\npacket-serial " + std::to_string(header.packetSerial) +
                       "\ndefault-rule " + counterText(header.defaultRule) + "\nwidest " +
                       counterText(widestWithDefault) + "\n";
    for (const DynamicState& state : header.dynamic) {
        head += dynamicLine(state);
    }
    const size_t rulesAt = layoutLine(0, 0).size() + head.size();
    return layoutLine(rulesAt, rulesAt + ruleText.size(), header.kernelGeneration) + head +
           ruleText;
}

}  // namespace ipfwsim
