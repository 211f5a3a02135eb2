#include "FileStateStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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
        if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
            return Status::failure(kExitCantCreate, "cannot create " + dir + ": " + errnoText());
        }
    }
    return Status::success();
}

}  // namespace

FileStateStore::FileStateStore(std::string path, bool exclusive)
    : path_(std::move(path)), exclusive_(exclusive) {}

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
    if (!status.ok()) {
        return status;
    }
    const std::string lockPath = path_ + ".lock";
    lockFd_ = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (lockFd_ < 0) {
        return Status::failure(kExitCantCreate, "cannot create " + lockPath + ": " + errnoText());
    }
    int rc = 0;
    do {
        rc = flock(lockFd_, exclusive_ ? LOCK_EX : LOCK_SH);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        return ioError("cannot lock");
    }
    return createIfMissing();
}

// Creation needs the exclusive lock even for a listing; it is taken back to shared after.
Status FileStateStore::createIfMissing() {
    struct stat info {};
    if (stat(path_.c_str(), &info) == 0 && info.st_size > 0) {
        return Status::success();
    }
    if (!exclusive_ && flock(lockFd_, LOCK_EX) != 0) {
        return ioError("cannot lock");
    }
    Status status = Status::success();
    if (stat(path_.c_str(), &info) != 0 || info.st_size == 0) {
        status = replace(StateFile::format(StateHeader{}, {}));
    }
    if (!exclusive_ && flock(lockFd_, LOCK_SH) != 0) {
        return ioError("cannot lock");
    }
    return status;
}

Status FileStateStore::openState() {
    if (fd_ >= 0) {
        return Status::success();
    }
    fd_ = open(path_.c_str(), (exclusive_ ? O_RDWR : O_RDONLY) | O_CLOEXEC);
    return fd_ < 0 ? ioError("cannot open") : Status::success();
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

Status FileStateStore::replace(std::string_view content) {
    Status locked = lock();
    if (!locked.ok()) {
        return locked;
    }
    const std::string temporary = path_ + ".new." + std::to_string(getpid());
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        return Status::failure(kExitCantCreate, "cannot create " + temporary + ": " + errnoText());
    }
    Status status = writeAll(fd, content, 0);
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
