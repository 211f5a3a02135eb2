#include "FileStateStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "ipfwsim/StateFile.h"

namespace ipfwsim {
namespace {

std::string errnoText() {
    return std::strerror(errno);
}

Status makeDirectories(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        std::string dir = path.substr(0, slash);
        if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
            return Status::failure(kExitCantCreate, "cannot create " + dir + ": " + errnoText());
        }
    }
    return Status::success();
}

Status refusal(const std::string& path, const std::string& why) {
    return Status::failure(EX_NOPERM, path + " " + why + "; refusing to use it");
}

// O_NOFOLLOW says ELOOP when the last part of the path is a symbolic link.
Status openFailure(const std::string& what, const std::string& path) {
    if (errno == ELOOP) {
        return refusal(path, "is a symbolic link");
    }
    return Status::failure(kExitCantCreate, what + " " + path + ": " + errnoText());
}

// A file another user could swap in or hold must not be used: it has to be a regular
// file of this user's, and only this user may open it (files of earlier versions were
// 0644, and a lock that others can open, they can hold).
Status checkOwnFile(int fd, const std::string& path) {
    struct stat info {};
    if (fstat(fd, &info) != 0) {
        return Status::failure(kExitIoErr, "cannot stat " + path + ": " + errnoText());
    }
    if (!S_ISREG(info.st_mode)) {
        return refusal(path, "is not a regular file");
    }
    if (info.st_uid != geteuid()) {
        return refusal(path, "belongs to uid " + std::to_string(info.st_uid) + ", not to uid " +
                                 std::to_string(geteuid()));
    }
    if ((info.st_mode & 077) != 0 && fchmod(fd, 0600) != 0) {
        return Status::failure(kExitIoErr, "cannot restrict " + path + ": " + errnoText());
    }
    return Status::success();
}

// Opens an existing file without following a link; a missing one is created, again
// without following a link and only if nobody created it in between.
int openOrCreate(const std::string& path, int access) {
    const int flags = access | O_NOFOLLOW | O_CLOEXEC;
    int fd = -1;
    for (int attempt = 0; attempt < 8 && fd < 0; ++attempt) {
        fd = open(path.c_str(), flags);
        if (fd >= 0 || errno != ENOENT) {
            break;
        }
        fd = open(path.c_str(), flags | O_CREAT | O_EXCL, 0600);
        if (fd < 0 && errno != EEXIST) {
            break;
        }
    }
    return fd;
}

}  // namespace

FileStateStore::FileStateStore(std::string path, bool exclusive, int lockSeconds)
    : path_(std::move(path)),
      lockPath_(path_ + ".lock"),
      exclusive_(exclusive),
      lockSeconds_(lockSeconds) {}

FileStateStore::~FileStateStore() {
    unmap();
    if (fd_ >= 0) {
        close(fd_);
    }
    if (lockFd_ >= 0) {
        close(lockFd_);  // releases the lock
    }
}

Status FileStateStore::ioError(const std::string& what) const {
    return Status::failure(kExitIoErr, what + " " + path_ + ": " + errnoText());
}

Status FileStateStore::lock() {
    if (lockFd_ >= 0) {
        return Status::success();
    }
    Status status = makeDirectories(path_);
    if (status.ok()) {
        status = openLockFile();
    }
    if (status.ok()) {
        status = waitForLock(exclusive_ ? LOCK_EX : LOCK_SH);
    }
    if (status.ok()) {
        status = refuseLinkedState();
    }
    if (status.ok()) {
        status = createIfMissing();
    }
    // Closed, so that a later access tries again instead of taking the lock for held.
    if (!status.ok() && lockFd_ >= 0) {
        close(lockFd_);
        lockFd_ = -1;
    }
    return status;
}

Status FileStateStore::openLockFile() {
    lockFd_ = openOrCreate(lockPath_, O_RDWR);
    if (lockFd_ < 0) {
        return openFailure("cannot create", lockPath_);
    }
    return checkOwnFile(lockFd_, lockPath_);
}

// Polls, so that the wait can end; the first try costs what a blocking flock did.
Status FileStateStore::waitForLock(int operation) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(lockSeconds_);
    std::chrono::milliseconds pause(1);
    while (flock(lockFd_, operation | LOCK_NB) != 0) {
        if (errno == EINTR) {
            continue;
        }
        if (errno != EWOULDBLOCK) {
            return ioError("cannot lock");
        }
        const Clock::time_point now = Clock::now();
        if (now >= deadline) {
            return Status::failure(EX_TEMPFAIL, "waited " + std::to_string(lockSeconds_) +
                                                    " s for the lock on " + lockPath_ +
                                                    " (held by another ipfw); giving up");
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(pause, deadline - now));
        pause = std::min(pause * 2, std::chrono::milliseconds(50));
    }
    return Status::success();
}

Status FileStateStore::refuseLinkedState() const {
    struct stat info {};
    if (lstat(path_.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) {
        return refusal(path_, "is a symbolic link");
    }
    return Status::success();
}

// Creation needs the exclusive lock even for a listing; it is taken back to shared after.
Status FileStateStore::createIfMissing() {
    struct stat info {};
    if (lstat(path_.c_str(), &info) == 0 && info.st_size > 0) {
        return Status::success();
    }
    Status status = exclusive_ ? Status::success() : waitForLock(LOCK_EX);
    if (!status.ok()) {
        return status;
    }
    if (lstat(path_.c_str(), &info) != 0 || info.st_size == 0) {
        status = replace(StateFile::format(StateHeader{}, {}));
    }
    Status shared = exclusive_ ? Status::success() : waitForLock(LOCK_SH);
    return status.ok() ? shared : status;
}

Status FileStateStore::openState() {
    if (fd_ >= 0) {
        return Status::success();
    }
    fd_ = open(path_.c_str(), (exclusive_ ? O_RDWR : O_RDONLY) | O_NOFOLLOW | O_CLOEXEC);
    if (fd_ < 0) {
        return errno == ELOOP ? refusal(path_, "is a symbolic link") : ioError("cannot open");
    }
    Status status = checkOwnFile(fd_, path_);
    if (!status.ok()) {
        close(fd_);
        fd_ = -1;
    }
    return status;
}

void FileStateStore::unmap() {
    if (map_ != nullptr) {
        munmap(map_, mapSize_);
        map_ = nullptr;
        mapSize_ = 0;
    }
}

Status FileStateStore::mapState() {
    unmap();
    struct stat info {};
    if (fstat(fd_, &info) != 0) {
        return ioError("cannot stat");
    }
    mapSize_ = static_cast<size_t>(info.st_size);
    if (mapSize_ > 0) {
        map_ = mmap(nullptr, mapSize_, PROT_READ, MAP_SHARED, fd_, 0);
        if (map_ == MAP_FAILED) {
            map_ = nullptr;
            mapSize_ = 0;
            return ioError("cannot map");
        }
    }
    stale_ = false;
    return Status::success();
}

Status FileStateStore::read(std::string_view& content) {
    Status status = lock();
    if (status.ok()) {
        status = openState();
    }
    if (status.ok() && stale_) {
        status = mapState();
    }
    if (status.ok()) {
        content = std::string_view(static_cast<const char*>(map_), mapSize_);
    }
    return status;
}

Status FileStateStore::writeAll(int fd, std::string_view text, size_t offset) const {
    while (!text.empty()) {
        ssize_t written = pwrite(fd, text.data(), text.size(), static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return ioError("cannot write");
        }
        text.remove_prefix(static_cast<size_t>(written));
        offset += static_cast<size_t>(written);
    }
    return Status::success();
}

Status FileStateStore::append(std::string_view text) {
    Status status = lock();
    if (status.ok()) {
        status = openState();
    }
    struct stat info {};
    if (status.ok() && fstat(fd_, &info) != 0) {
        status = ioError("cannot stat");
    }
    if (status.ok()) {
        status = writeAll(fd_, text, static_cast<size_t>(info.st_size));
    }
    stale_ = true;
    return status;
}

Status FileStateStore::overwrite(size_t offset, std::string_view text) {
    Status status = lock();
    if (status.ok()) {
        status = openState();
    }
    if (status.ok()) {
        status = writeAll(fd_, text, offset);
    }
    // The shared mapping shows bytes written inside it; only a longer file needs a new one.
    stale_ = stale_ || !status.ok() || offset + text.size() > mapSize_;
    return status;
}

// A file left by a killed process of the same number (or planted, a link perhaps) is
// removed, never written through.
Status FileStateStore::openNewFile(const std::string& path, int& fd) const {
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    fd = open(path.c_str(), flags, 0600);
    if (fd < 0 && errno == EEXIST && unlink(path.c_str()) == 0) {
        fd = open(path.c_str(), flags, 0600);
    }
    return fd < 0 ? openFailure("cannot create", path) : Status::success();
}

Status FileStateStore::replace(std::string_view content) {
    Status locked = lock();
    if (!locked.ok()) {
        return locked;
    }
    const std::string temporary = path_ + ".new." + std::to_string(getpid());
    int fd = -1;
    Status status = openNewFile(temporary, fd);
    if (!status.ok()) {
        return status;
    }
    status = writeAll(fd, content, 0);
    if (close(fd) != 0 && status.ok()) {
        status = ioError("cannot close");
    }
    if (status.ok() && rename(temporary.c_str(), path_.c_str()) != 0) {
        status = ioError("cannot replace");
    }
    if (!status.ok()) {
        unlink(temporary.c_str());
        return status;
    }
    unmap();
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
    stale_ = true;
    return Status::success();
}

}  // namespace ipfwsim
