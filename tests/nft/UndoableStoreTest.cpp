// The rule state as it was before a command's writes: put together from what the writes
// overwrote, and read without a copy after an add.
#include <gtest/gtest.h>

#include "SimFakes.h"
#include "ipfwnft/UndoableStore.h"
#include "ipfwsim/StateFile.h"

namespace {

std::string Before(ipfwnft::UndoableStore& store) {
    std::string content;
    EXPECT_TRUE(store.before(content).ok());
    return content;
}

TEST(UndoableStore, AnAddIsReadBackAsAViewAndOtherWritesAsACopy) {
    simtest::MemoryStore memory;
    memory.bytes = "first-line 0000000010\nheader\nrule 1\n";
    const std::string original = memory.bytes;
    ipfwnft::UndoableStore store(memory);
    bool changed = true;
    ASSERT_TRUE(store.changed(changed).ok());
    EXPECT_FALSE(changed) << "nothing written";

    // An add: a line appended, a first-line field moved past it.
    ASSERT_TRUE(store.append("rule 2\n").ok());
    ASSERT_TRUE(store.overwrite(11, "0000000099").ok());
    bool only = false;
    size_t size = 0;
    std::string firstLine;
    ASSERT_TRUE(store.appendedOnly(only, size, firstLine).ok());
    EXPECT_TRUE(only);
    EXPECT_EQ(firstLine + memory.bytes.substr(firstLine.size(), size - firstLine.size()), original);
    EXPECT_EQ(Before(store), original);
    ASSERT_TRUE(store.changed(changed).ok());
    EXPECT_TRUE(changed);

    // A write past the first line (a delete's mark, a set switch) needs the copy.
    ASSERT_TRUE(store.overwrite(22, "HEADER").ok());
    ASSERT_TRUE(store.appendedOnly(only, size, firstLine).ok());
    EXPECT_FALSE(only);
    EXPECT_EQ(Before(store), original);
    ASSERT_TRUE(store.replace("first-line 0000000000\n").ok());
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

}  // namespace
