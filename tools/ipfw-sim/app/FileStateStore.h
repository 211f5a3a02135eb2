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
class FileStateStore : public StateStore {
public:
    FileStateStore(std::string path, bool exclusive);
    ~FileStateStore() override;
    FileStateStore(const FileStateStore&) = delete;
    FileStateStore& operator=(const FileStateStore&) = delete;

    Status read(std::string_view& content) override;
    Status append(std::string_view text) override;
    Status overwrite(size_t offset, std::string_view text) override;
    Status replace(std::string_view content) override;

private:
    Status lock();
    Status createIfMissing();
    Status openState();
    Status mapState();
    void unmap();
    Status writeAll(int fd, std::string_view text, size_t offset) const;
    Status ioError(const std::string& what) const;

    std::string path_;
    bool exclusive_;
    int lockFd_ = -1;
    int fd_ = -1;
    void* map_ = nullptr;
    size_t mapSize_ = 0;
    bool stale_ = true;
};

}  // namespace ipfwsim
