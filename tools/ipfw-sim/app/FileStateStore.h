#pragma once

#include <string>
#include <string_view>

#include "ipfwsim/StateStore.h"

namespace ipfwsim {

// The rule state in a file, locked through "<file>.lock" with flock(2) from the first
// access until the process ends: shared for listings, exclusive for changes. The file
// and its directory are created on first use. Reads map the file; appends and patches
// write in place; whole rewrites go through a temporary file and rename(2), so a
// reader never sees half a state.
// The state may live in a directory other users can write, so directories are created
// 0700 and files 0600 without following links, a symbolic link or a lock file of another
// user is refused, and a wait for the lock ends after a time-out.
class FileStateStore : public StateStore {
public:
    static constexpr int kDefaultLockSeconds = 10;

    FileStateStore(std::string path, bool exclusive, int lockSeconds = kDefaultLockSeconds);
    ~FileStateStore() override;
    FileStateStore(const FileStateStore&) = delete;
    FileStateStore& operator=(const FileStateStore&) = delete;

    Status read(std::string_view& content) override;
    Status append(std::string_view text) override;
    Status overwrite(size_t offset, std::string_view text) override;
    Status replace(std::string_view content) override;

private:
    Status lock();
    Status openLockFile();
    Status waitForLock(int operation);
    Status refuseLinkedState() const;
    Status openNewFile(const std::string& path, int& fd) const;
    Status createIfMissing();
    Status openState();
    Status mapState();
    void unmap();
    Status writeAll(int fd, std::string_view text, size_t offset) const;
    Status ioError(const std::string& what) const;

    std::string path_;
    std::string lockPath_;
    bool exclusive_;
    int lockSeconds_;
    int lockFd_ = -1;
    int fd_ = -1;
    void* map_ = nullptr;
    size_t mapSize_ = 0;
    bool stale_ = true;
};

}  // namespace ipfwsim
