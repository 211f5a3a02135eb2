// The rule state as it was before a command's writes: read as a view of the state after
// them (the current bytes with what the writes overwrote laid back) wherever every line
// kept its place, and put together whole for an undo.
#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "SimFakes.h"
#include "ipfwnft/UndoableStore.h"
#include "ipfwsim/RuleParser.h"
#include "ipfwsim/StateFile.h"

namespace {

using ipfwsim::StateFile;
using ipfwsim::StatePatch;

std::string Before(ipfwnft::UndoableStore& store) {
    std::string content;
    EXPECT_TRUE(store.before(content).ok());
    return content;
}

struct PatchedView {
    bool linesKept = false;
    size_t size = 0;
    std::vector<StatePatch> patches;
};

PatchedView PatchesBack(ipfwnft::UndoableStore& store) {
    PatchedView view;
    EXPECT_TRUE(store.patchesBack(view.linesKept, view.size, view.patches).ok());
    return view;
}

// The content a view stands for, put together the plain way.
std::string Applied(std::string_view current, const PatchedView& view) {
    std::string text(current.substr(0, view.size));
    for (const StatePatch& patch : view.patches) {
        text.replace(patch.offset, patch.bytes.size(), patch.bytes);
    }
    return text;
}

TEST(UndoableStore, WritesInPlaceAreReadBackAsPatchesAndARewriteAsACopy) {
    simtest::MemoryStore memory;
    memory.bytes = "first-line 0000000010\nheader 0000\nrule 1\nrule 2\n";
    const std::string original = memory.bytes;
    ipfwnft::UndoableStore store(memory);
    bool changed = true;
    ASSERT_TRUE(store.changed(changed).ok());
    EXPECT_FALSE(changed) << "nothing written";

    // An add: a line appended, a first-line field moved past it.
    ASSERT_TRUE(store.append("rule 3\n").ok());
    ASSERT_TRUE(store.overwrite(11, "0000000099").ok());
    PatchedView view = PatchesBack(store);
    EXPECT_TRUE(view.linesKept);
    EXPECT_EQ(view.size, original.size());
    EXPECT_EQ(Applied(memory.bytes, view), original);
    ASSERT_TRUE(store.changed(changed).ok());
    EXPECT_TRUE(changed);

    // A delete's mark and a set switch, and the field written twice: the oldest bytes win.
    ASSERT_TRUE(store.overwrite(41, "-    ").ok());
    ASSERT_TRUE(store.overwrite(29, "0004").ok());
    ASSERT_TRUE(store.overwrite(11, "0000000100").ok());
    view = PatchesBack(store);
    EXPECT_TRUE(view.linesKept);
    EXPECT_EQ(Applied(memory.bytes, view), original);
    ASSERT_EQ(view.patches.size(), 3u);
    EXPECT_EQ(view.patches[0].bytes, "0000000010");
    EXPECT_EQ(view.patches[2].offset, 41u);
    EXPECT_EQ(Before(store), original);

    // A rewrite that moves lines leaves only the copy.
    ASSERT_TRUE(store.replace("first-line 0000000000\nrule 9\n").ok());
    EXPECT_FALSE(PatchesBack(store).linesKept);
    EXPECT_EQ(Before(store), original) << "undone through a whole replacement";
}

TEST(UndoableStore, WritesThatPutBackWhatStoodChangeNothing) {
    simtest::MemoryStore memory;
    const std::string original = memory.bytes;
    ipfwnft::UndoableStore store(memory);
    ASSERT_TRUE(store
                    .overwrite(ipfwsim::StateFile::kKernelField,
                               original.substr(ipfwsim::StateFile::kKernelField, 10))
                    .ok());
    bool changed = true;
    ASSERT_TRUE(store.changed(changed).ok());
    EXPECT_FALSE(changed);
    ASSERT_TRUE(store.overwrite(ipfwsim::StateFile::kKernelField, "0000000007").ok());
    ASSERT_TRUE(store.changed(changed).ok());
    EXPECT_TRUE(changed);
    EXPECT_EQ(Before(store), original);
}

// Random states and random sequences of the writes a command makes (a rule appended, a
// rule marked deleted, a header or first-line field rewritten, bytes scrambled in place
// across lines, and writes that move lines or rewrite the whole state): the view always
// stands for the state before them, and a StateFile over it reads exactly what one over
// that state's bytes reads.
class RandomWrites : public ::testing::Test {
protected:
    std::mt19937 random{20261126};

    size_t Below(size_t n) { return n == 0 ? 0 : random() % n; }

    ipfwsim::StoredRule MakeRule(uint32_t number) {
        const char* bodies[] = {"deny proto tcp dst-port 22", "allow proto udp",
                                "deny log proto icmp", "allow proto tcp dst-port 80 keep-state"};
        std::istringstream text(bodies[Below(4)]);
        const std::vector<std::string> words{std::istream_iterator<std::string>(text),
                                             std::istream_iterator<std::string>()};
        ipfwsim::Diagnostics ignored;
        ipfwsim::StoredRule stored;
        uint64_t parsed = 0;
        EXPECT_TRUE(ipfwsim::RuleParser(names, ignored).parse(words, stored.rule, parsed).ok());
        stored.rule.number = number;
        stored.rule.set = 18 + static_cast<uint32_t>(Below(2));
        stored.counters.packets = Below(1000);
        return stored;
    }

    std::string MakeState() {
        ipfwsim::StateHeader header;
        header.kernelGeneration = static_cast<uint32_t>(1 + Below(1000));
        header.disabledSets = static_cast<uint32_t>(Below(4)) << 18;
        std::vector<ipfwsim::StoredRule> rules;
        uint32_t number = 100;
        for (size_t i = 1 + Below(60); i > 0; --i) {
            number += static_cast<uint32_t>(Below(3) * 100);  // some numbers hold several
            rules.push_back(MakeRule(number));
        }
        return StateFile::format(header, rules);
    }

    // One write as a command makes it; says whether it may have moved a line.
    bool Write(ipfwnft::UndoableStore& store) {
        std::string_view content;
        EXPECT_TRUE(store.read(content).ok());
        StateFile file(content);
        const bool readable = file.open().ok();
        const std::vector<std::string_view> lines =
            readable ? file.linesInRange(0, 65535) : std::vector<std::string_view>{};
        switch (Below(7)) {
            case 0:
                EXPECT_TRUE(
                    store.append(StateFile::formatRuleLine(MakeRule(100 + Below(9000)))).ok());
                return false;
            case 1:
                if (!lines.empty()) {
                    const std::string_view line = lines[Below(lines.size())];
                    EXPECT_TRUE(
                        store.overwrite(file.offsetOf(line), StateFile::tombstone(line)).ok());
                }
                return false;
            case 2:
                EXPECT_TRUE(store
                                .overwrite(StateFile::kKernelField,
                                           "00000" + std::to_string(10000 + Below(89999)))
                                .ok());
                return false;
            case 3:
                if (readable && file.headerValueAt("disabled-sets") != std::string_view::npos) {
                    EXPECT_TRUE(
                        store.overwrite(file.headerValueAt("disabled-sets"), "000c0000").ok());
                }
                return false;
            case 4: {
                // Every byte of a stretch changed but its newlines.
                const size_t at = Below(content.size());
                std::string bytes(content.substr(at, 1 + Below(200)));
                for (char& byte : bytes) {
                    byte = byte == '\n' ? '\n' : static_cast<char>('0' + Below(10));
                }
                EXPECT_TRUE(store.overwrite(at, bytes).ok());
                return false;
            }
            case 5: {
                std::string bytes(1 + Below(30), 'x');
                bytes[Below(bytes.size())] = '\n';
                EXPECT_TRUE(store.overwrite(Below(content.size() + 1), bytes).ok());
                return true;
            }
            default:
                if (Below(4) == 0) {
                    EXPECT_TRUE(store.replace(MakeState()).ok());
                    return true;
                }
                return false;
        }
    }

    simtest::FakeNames names;
};

void ExpectSameReading(const StateFile& view, const StateFile& file, const std::string& why) {
    EXPECT_EQ(view.rulesAt(), file.rulesAt()) << why;
    EXPECT_EQ(view.sortedEnd(), file.sortedEnd()) << why;
    EXPECT_EQ(view.end(), file.end()) << why;
    EXPECT_EQ(view.kernelGeneration(), file.kernelGeneration()) << why;
    EXPECT_EQ(view.rulesText(), file.rulesText()) << why;
    EXPECT_EQ(view.lastNumber(), file.lastNumber()) << why;
    EXPECT_EQ(view.overflowLines(), file.overflowLines()) << why;
    EXPECT_EQ(view.headerValueAt("disabled-sets"), file.headerValueAt("disabled-sets")) << why;
    ipfwsim::StateHeader viewHeader;
    ipfwsim::StateHeader fileHeader;
    std::vector<ipfwsim::StoredRule> viewRules;
    std::vector<ipfwsim::StoredRule> fileRules;
    ASSERT_TRUE(view.readAll(viewHeader, viewRules).ok()) << why;
    ASSERT_TRUE(file.readAll(fileHeader, fileRules).ok()) << why;
    EXPECT_EQ(StateFile::format(viewHeader, viewRules), StateFile::format(fileHeader, fileRules))
        << why;
    for (uint32_t low = 0; low < 10000; low += 250) {
        const std::vector<std::string_view> viewLines = view.linesInRange(low, low + 400);
        const std::vector<std::string_view> fileLines = file.linesInRange(low, low + 400);
        EXPECT_EQ(std::vector<std::string>(viewLines.begin(), viewLines.end()),
                  std::vector<std::string>(fileLines.begin(), fileLines.end()))
            << why << ", rules " << low;
        EXPECT_EQ(view.holdsRulesIn(low, low + 100), file.holdsRulesIn(low, low + 100)) << why;
        EXPECT_EQ(view.appendKeepsOrder(low), file.appendKeepsOrder(low)) << why;
    }
}

TEST_F(RandomWrites, TheViewReadsAsTheStateBeforeThem) {
    int viewed = 0;
    int copied = 0;
    for (int round = 0; round < 400; ++round) {
        simtest::MemoryStore memory;
        memory.bytes = MakeState();
        const std::string original = memory.bytes;
        ipfwnft::UndoableStore store(memory);
        bool movesLines = false;
        for (size_t writes = 1 + Below(8); writes > 0; --writes) {
            movesLines |= Write(store);
        }
        const std::string why = "round " + std::to_string(round);
        EXPECT_EQ(Before(store), original) << why;
        const PatchedView view = PatchesBack(store);
        EXPECT_TRUE(view.linesKept || movesLines) << why << ": lines kept, yet copied";
        if (!view.linesKept) {
            ++copied;
            continue;
        }
        ++viewed;
        ASSERT_EQ(Applied(memory.bytes, view), original) << why;
        for (size_t i = 1; i < view.patches.size(); ++i) {
            EXPECT_LT(view.patches[i - 1].offset + view.patches[i - 1].bytes.size(),
                      view.patches[i].offset)
                << why << ": patches sorted, apart and joined where they touch";
        }
        StateFile patched(std::string_view(memory.bytes).substr(0, view.size), view.patches);
        StateFile plain(original);
        ASSERT_TRUE(patched.open().ok()) << why;
        ASSERT_TRUE(plain.open().ok()) << why;
        ExpectSameReading(patched, plain, why);
        const StateFile copy = patched;
        EXPECT_EQ(copy.rulesText(), plain.rulesText()) << why << ": a copy reads the same lines";
    }
    EXPECT_GT(viewed, 100);
    EXPECT_GT(copied, 20);
}

}  // namespace
