// The configuration file store on real files: loading with recovery from the backup,
// saving through the backup in place, files deleted or replaced under a running store,
// and the result codes of refused operations.
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "ConfigTestSupport.h"
#include "QvConfig.h"
#include "TempDir.h"
#include "TestUtil.h"
#include "VelaFwInternalMsgConvert.h"
#include "VelaFwMsgConvert.h"

using namespace qor::vela;
using qvtest::readFile;
using qvtest::writeFile;

namespace {

using Store = QvConfig<Mutex>;

std::string plistDocument(const std::string& body) {
    return qvtest::plistDocument(body + "\n");
}

std::string optionsDocument(int setNum) {
    return plistDocument("<dict><key>FwOptions</key><dict><key>default_set_num</key><integer>" +
                         std::to_string(setNum) + "</integer></dict></dict>");
}

ino_t inodeOf(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

int storedSetNum(Store& store) {
    FwOptions options;
    EXPECT_TRUE(store.get(options, "FwOptions").ok());
    return options.default_set_num();
}

bool setSetNum(Store& store, int setNum) {
    FwOptions options;
    options.set_default_set_num(setNum);
    return store.set(options, "FwOptions").ok();
}

class QvConfigTest : public ::testing::Test {
protected:
    std::string path() const { return m_dir.file("QvFw.conf.plist"); }
    std::string backupDir() const { return m_dir.file("backup"); }
    std::string backup() const { return backupDir() + "/QvFw.conf.plist"; }
    void writeBackup(const std::string& content) const {
        mkdir(backupDir().c_str(), 0700);
        writeFile(backup(), content);
    }

    qvtest::TempDir m_dir;
};

TEST_F(QvConfigTest, UnloadedStoreRefusesEveryOperation) {
    Store nullPath(nullptr);
    Store missing(path().c_str());  // no file, no backup
    for (Store* store : {&nullPath, &missing}) {
        EXPECT_FALSE(store->isLoaded());
        FwOptions options;
        EXPECT_EQ(QV_CONFIG_GET_BAD_ARGUMENT, store->get(options, "FwOptions").code());
        EXPECT_EQ(QV_CONFIG_SET_BAD_ARGUMENT, store->set(options, "FwOptions").code());
        EXPECT_EQ(QV_CONFIG_SAVE_NOT_LOADED, store->save().code());
        EXPECT_EQ(QV_CONFIG_TO_BACKUP_NOT_LOADED, store->copytobackup().code());
    }
    // The store never makes a file from nothing.
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(QvConfigTest, DamagedOrMissingFileIsRestoredFromBackup) {
    const std::string good = optionsDocument(5);
    const std::string damaged[] = {"", good.substr(0, good.size() / 2),
                                   plistDocument("<array><integer>1</integer></array>"),
                                   std::string("bplist00\xff\x00garbage", 16)};
    writeBackup(good);
    for (const std::string& content : damaged) {
        writeFile(path(), content);
        Store store(path().c_str());
        ASSERT_TRUE(store.isLoaded()) << content;
        EXPECT_EQ(5, storedSetNum(store));
        EXPECT_EQ(good, readFile(path()));
    }
    std::filesystem::remove(path());
    Store restored(path().c_str());
    EXPECT_TRUE(restored.isLoaded());
    EXPECT_EQ(good, readFile(path()));

    std::filesystem::remove(backup());
    writeFile(path(), damaged[2]);
    Store lost(path().c_str());
    EXPECT_FALSE(lost.isLoaded());
    EXPECT_EQ(QV_CONFIG_SAVE_NOT_LOADED, lost.save().code());
}

// Every restore opens the backup once, so its open events count the failed attempts
// (close events are watched too, because inotify merges repeated identical events).
TEST_F(QvConfigTest, CorruptBackupGivesUpAfterThreeAttempts) {
    const std::string corrupt = plistDocument("<string>no dictionary</string>");
    writeBackup(corrupt);
    writeFile(path(), "garbage");
    const int watch = inotify_init1(IN_NONBLOCK);
    ASSERT_GE(watch, 0);
    ASSERT_GE(inotify_add_watch(watch, backup().c_str(), IN_OPEN | IN_CLOSE), 0);

    Store store(path().c_str());

    char events[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    int opens = 0;
    for (ssize_t n; (n = read(watch, events, sizeof(events))) > 0;) {
        for (char* p = events; p < events + n;) {
            const inotify_event* event = reinterpret_cast<inotify_event*>(p);
            opens += (event->mask & IN_OPEN) != 0;
            p += sizeof(inotify_event) + event->len;
        }
    }
    close(watch);
    EXPECT_FALSE(store.isLoaded());
    EXPECT_EQ(3, opens);
    EXPECT_EQ(corrupt, readFile(path()));
}

TEST_F(QvConfigTest, SaveRefreshesBackupAndOverwritesInPlace) {
    const std::string original = optionsDocument(5);
    writeFile(path(), original);
    const ino_t inode = inodeOf(path());
    Store store(path().c_str());
    ASSERT_TRUE(store.isLoaded());

    ASSERT_TRUE(setSetNum(store, 6));
    ASSERT_TRUE(store.save().ok());
    EXPECT_EQ(original, readFile(backup()));
    struct stat dirStat;
    ASSERT_EQ(0, stat(backupDir().c_str(), &dirStat));
    EXPECT_EQ(0600u, dirStat.st_mode & 0777);
    const std::string firstSave = readFile(path());

    ASSERT_TRUE(setSetNum(store, 7));
    ASSERT_TRUE(store.save().ok());
    EXPECT_EQ(firstSave, readFile(backup()));
    EXPECT_EQ(inode, inodeOf(path()));

    Store reread(path().c_str());
    EXPECT_EQ(7, storedSetNum(reread));
}

TEST_F(QvConfigTest, ShorterDocumentLeavesNoTrailingBytes) {
    writeFile(path(), plistDocument("<dict/>"));
    Store store(path().c_str());
    FwRuleList many;
    for (unsigned int i = 0; i < 50; ++i) {
        many.add_rules()->CopyFrom(qvtest::fullRule(i));
    }
    ASSERT_TRUE(store.set(many, "FwRuleCfg").ok());
    ASSERT_TRUE(store.save().ok());
    const size_t longSize = readFile(path()).size();

    ASSERT_TRUE(store.set(FwRuleList(), "FwRuleCfg").ok());
    ASSERT_TRUE(store.save().ok());
    const std::string shortDoc = readFile(path());
    EXPECT_LT(shortDoc.size() * 10, longSize);
    EXPECT_EQ(plistDocument("<dict>\n\t<key>FwRuleCfg</key>\n\t<dict/>\n</dict>"), shortDoc);
}

TEST_F(QvConfigTest, DeletedFileIsRecreatedPrivatelyAndReplacedFileFollowed) {
    writeFile(path(), optionsDocument(5));
    Store store(path().c_str());
    ASSERT_TRUE(store.save().ok());
    ASSERT_EQ(0, unlink(path().c_str()));

    ASSERT_TRUE(setSetNum(store, 8));
    ASSERT_TRUE(store.save().ok());
    struct stat st;
    ASSERT_EQ(0, stat(path().c_str(), &st));
    EXPECT_EQ(0600u, st.st_mode & 0777);
    Store reread(path().c_str());
    EXPECT_EQ(8, storedSetNum(reread));

    // The descriptor of the removed file is left open, by design.
    bool oldDescriptorOpen = false;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        oldDescriptorOpen |= target == path() + " (deleted)";
    }
    EXPECT_TRUE(oldDescriptorOpen);

    // Deleted before the store's first save, it cannot be opened.
    Store unsaved(path().c_str());
    ASSERT_EQ(0, unlink(path().c_str()));
    EXPECT_EQ(QV_CONFIG_SAVE_OPEN, unsaved.save().code());

    // Replaced by rename, the new file is written and the old one left alone.
    writeFile(path(), optionsDocument(5));
    ASSERT_TRUE(store.save().ok());  // holds this file open now
    const std::string oldLink = m_dir.file("old.plist");
    ASSERT_EQ(0, link(path().c_str(), oldLink.c_str()));
    const std::string oldContent = readFile(oldLink);
    writeFile(m_dir.file("new.plist"), optionsDocument(11));
    ASSERT_EQ(0, rename(m_dir.file("new.plist").c_str(), path().c_str()));

    ASSERT_TRUE(setSetNum(store, 12));
    ASSERT_TRUE(store.save().ok());
    Store followed(path().c_str());
    EXPECT_EQ(12, storedSetNum(followed));
    EXPECT_EQ(oldContent, readFile(oldLink));
}

TEST_F(QvConfigTest, EntriesAreTypedDictionariesAndFailuresHaveTheirCodes) {
    writeFile(path(), plistDocument("<dict><key>Name</key><string>x</string></dict>"));
    Store store(path().c_str());
    ASSERT_TRUE(store.isLoaded());
    FwOptions options;
    EXPECT_EQ(QV_CONFIG_GET_NO_ENTRY, store.get(options, "Name").code());
    EXPECT_EQ(QV_CONFIG_GET_NO_ENTRY, store.get(options, "FwOptions").code());
    EXPECT_EQ(QV_CONFIG_GET_BAD_ARGUMENT, store.get(options, nullptr).code());
    EXPECT_EQ(QV_CONFIG_SET_BAD_ARGUMENT, store.set(options, nullptr).code());

    FwRuleList incomplete;
    incomplete.add_rules()->mutable_src_ip();  // required ip_type missing
    EXPECT_EQ(QV_CONFIG_SET_CONVERT, store.set(incomplete, "FwRuleCfg").code());

    // An empty list is an empty dictionary, and reading it leaves the caller's list alone.
    ASSERT_TRUE(store.set(FwRuleList(), "FwRuleCfg").ok());
    FwRuleList list;
    list.add_rules()->set_rule_index(3);
    EXPECT_TRUE(store.get(list, "FwRuleCfg").ok());
    EXPECT_EQ(1, list.rules_size());

    EXPECT_EQ(QV_CONFIG_FROM_BACKUP_OPEN_SOURCE, store.copyfrombackup().code());
    // A directory where the backup file belongs cannot be written; save goes on without.
    ASSERT_TRUE(std::filesystem::create_directories(backup()));
    EXPECT_EQ(QV_CONFIG_TO_BACKUP_OPEN_TARGET, store.copytobackup().code());
    EXPECT_TRUE(store.save().ok());
}

}  // namespace
