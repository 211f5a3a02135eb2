// The configuration file store: one property-list file held in memory as a mutable
// dictionary, handed out and replaced one top-level entry at a time as typed messages,
// written back whole on request, with a one-generation copy in a "backup" directory
// beside the file.
//
// Loading tries the file up to three times, restoring it from the backup after every
// failed attempt; the store never creates the file from nothing. Saving first refreshes
// the backup from the file on disk, then overwrites the file in place through one
// descriptor kept open for the store's life (write, truncate, fsync; the first byte
// last), so the file keeps its inode and permissions. A file deleted or replaced under a
// running store is followed by reopening; the superseded descriptor is deliberately never
// closed.
//
// Every operation answers a result whose code (below) says what failed; the store logs
// nothing, its owner does. Lock failures throw std::string (QvLock.h).
//
// Entries are converted with the overloaded convert() of the message's own namespace:
// convert(CFDictionaryRef, T&) to read and convert(const T&, CFMutableDictionaryRef) to
// write (VelaFwMsgConvert.h, VelaFwInternalMsgConvert.h).
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <string>

#include "QvLock.h"
#include "QvResult.h"

namespace qor {
namespace vela {

// Result codes of the store's operations.
enum QvConfigError {
    QV_CONFIG_OK = 0,
    QV_CONFIG_NULL_PATH = -1,
    QV_CONFIG_SAVE_NOT_LOADED = -2,
    QV_CONFIG_SAVE_OPEN = -3,
    QV_CONFIG_SAVE_SERIALIZE = -4,
    QV_CONFIG_SAVE_WRITE = -5,
    QV_CONFIG_GET_BAD_ARGUMENT = -6,
    QV_CONFIG_GET_NO_ENTRY = -7,
    QV_CONFIG_SET_BAD_ARGUMENT = -8,
    QV_CONFIG_SET_CONVERT = -9,
    QV_CONFIG_TO_BACKUP_NOT_LOADED = -10,
    QV_CONFIG_TO_BACKUP_OPEN_SOURCE = -11,
    QV_CONFIG_TO_BACKUP_NO_MEMORY = -12,
    QV_CONFIG_TO_BACKUP_SHORT_READ = -13,
    QV_CONFIG_TO_BACKUP_OPEN_TARGET = -14,
    QV_CONFIG_TO_BACKUP_SHORT_WRITE = -15,
    QV_CONFIG_FROM_BACKUP_OPEN_SOURCE = -16,
    QV_CONFIG_FROM_BACKUP_NO_MEMORY = -17,
    QV_CONFIG_FROM_BACKUP_SHORT_READ = -18,
    QV_CONFIG_FROM_BACKUP_OPEN_TARGET = -19,
    QV_CONFIG_FROM_BACKUP_SHORT_WRITE = -20,
};

// A buffer of whole pages straight from the kernel, given back as soon as it is
// released. The store reads the whole file into one when it loads: taken from the heap,
// a buffer that large would stay resident for the process's life as a file-sized hole.
class QvPageBuffer {
public:
    explicit QvPageBuffer(size_t size) : m_size(size > 0 ? size : 1) {
        void* pages =
            mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        m_pages = pages == MAP_FAILED ? nullptr : static_cast<char*>(pages);
    }
    ~QvPageBuffer() {
        if (m_pages != nullptr) {
            munmap(m_pages, m_size);
        }
    }
    QvPageBuffer(const QvPageBuffer&) = delete;
    QvPageBuffer& operator=(const QvPageBuffer&) = delete;

    char* get() const { return m_pages; }

private:
    size_t m_size;
    char* m_pages;
};

template <typename Lock>
class QvConfig {
public:
    using Status = Result<>;

    // Loads `path`; a null, missing or unusable file leaves the store unloaded.
    explicit QvConfig(const char* path) {
        if (path == nullptr) {
            return;
        }
        setPath(path);
        load();
    }

    ~QvConfig() {
        if (m_root != nullptr) {
            CFRelease(m_root);
            m_root = nullptr;
        }
        if (m_fd != -1) {
            close(m_fd);
            m_fd = -1;
        }
        m_inode = 0;
    }

    QvConfig(const QvConfig&) = delete;
    QvConfig& operator=(const QvConfig&) = delete;

    bool isLoaded() const { return m_loaded; }

    // Fills `out` from the top-level dictionary under `key`; a failure of the conversion
    // itself is -7 too. Entries are replaced whole and never changed in place, so the
    // conversion reads its own reference outside the lock.
    template <typename T>
    Status get(T& out, const char* key) {
        CFDictionaryRef entry = nullptr;
        const Status found = copyEntry(key, entry);
        if (!found.ok()) {
            return found;
        }
        const bool converted = convert(entry, out);
        CFRelease(entry);
        return converted ? Status::Success() : Status::Failure(QV_CONFIG_GET_NO_ENTRY);
    }

    // Replaces the top-level entry `key` with a dictionary made from `in`, in memory only;
    // save() writes it out.
    template <typename T>
    Status set(const T& in, const char* key) {
        if (key == nullptr || !m_loaded) {
            return Status::Failure(QV_CONFIG_SET_BAD_ARGUMENT);
        }
        // Conversion runs outside the lock; only the swap of the entry needs it.
        CFMutableDictionaryRef entry =
            CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks);
        if (entry == nullptr || !convert(in, entry)) {
            if (entry != nullptr) {
                CFRelease(entry);
            }
            return Status::Failure(QV_CONFIG_SET_CONVERT);
        }
        const Status replaced = setEntry(entry, key);
        CFRelease(entry);
        return replaced;
    }

    // Replaces the top-level entry `key` with `entry` itself, retained and not copied, in
    // memory only. For an owner that keeps the parts of an entry from one save to the
    // next: immutable parts keep their XML text, so a save renders only what changed.
    Status setEntry(CFDictionaryRef entry, const char* key) EXCLUDES(m_lock) {
        CFStringRef keyString = createKey(key);
        if (keyString == nullptr || entry == nullptr) {
            if (keyString != nullptr) {
                CFRelease(keyString);
            }
            return Status::Failure(QV_CONFIG_SET_BAD_ARGUMENT);
        }
        Guard<Lock> guard(m_lock);
        CFDictionarySetValue(m_root, keyString, entry);
        CFRelease(keyString);
        return Status::Success();
    }

    // A new reference in `entry` to the top-level dictionary under `key` as it is in
    // memory (its containers immutable).
    Status copyEntry(const char* key, CFDictionaryRef& entry) EXCLUDES(m_lock) {
        CFStringRef keyString = createKey(key);
        if (keyString == nullptr) {
            return Status::Failure(QV_CONFIG_GET_BAD_ARGUMENT);
        }
        Guard<Lock> guard(m_lock);
        CFTypeRef value = CFDictionaryGetValue(m_root, keyString);
        CFRelease(keyString);
        if (value == nullptr || CFGetTypeID(value) != CFDictionaryGetTypeID()) {
            return Status::Failure(QV_CONFIG_GET_NO_ENTRY);
        }
        entry = static_cast<CFDictionaryRef>(CFRetain(value));
        return Status::Success();
    }

    // Writes the whole document over the configuration file, after copying the file as
    // it was into the backup.
    Status save() EXCLUDES(m_lock) {
        if (!m_loaded) {
            return Status::Failure(QV_CONFIG_SAVE_NOT_LOADED);
        }
        Guard<Lock> guard(m_lock);
        // The backup must hold a whole document before the file is overwritten: a backup
        // left short (disk full) is no fallback, so the file stays as it is. A file left
        // incomplete by an earlier failed write is never copied over the backup.
        if (!m_fileIncomplete) {
            const Status backedUp = copytobackup();
            if (backedUp.code() == QV_CONFIG_TO_BACKUP_SHORT_WRITE) {
                return backedUp;
            }
        }
        if (m_fd == -1) {
            m_fd = open(m_path.c_str(), O_WRONLY);
            if (m_fd == -1) {
                return Status::Failure(QV_CONFIG_SAVE_OPEN);
            }
        }
        if (!followReplacedFile()) {
            return Status::Failure(QV_CONFIG_SAVE_OPEN);
        }
        CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, m_root,
                                                  kCFPropertyListXMLFormat_v1_0, 0, nullptr);
        if (data == nullptr) {
            return Status::Failure(QV_CONFIG_SAVE_SERIALIZE);
        }
        const bool written = overwriteInPlace(CFDataGetBytePtr(data), CFDataGetLength(data));
        CFRelease(data);
        if (!written) {
            return Status::Failure(QV_CONFIG_SAVE_WRITE);
        }
        fsync(m_fd);
        return Status::Success();
    }

    // Copies the configuration file byte for byte into the backup file, creating the
    // backup directory when it is missing.
    Status copytobackup() {
        if (!m_loaded) {
            return Status::Failure(QV_CONFIG_TO_BACKUP_NOT_LOADED);
        }
        struct stat dirStat;
        if (stat(m_backupDir.c_str(), &dirStat) != 0) {
            // 0600 without the search bit is the mode the backup directory has always had.
            mkdir(m_backupDir.c_str(), 0600);
        }
        return Status::FromCode(copyFile(m_path, backupPath(), kToBackupErrors));
    }

    // Copies the backup file byte for byte over the configuration file (creating it).
    Status copyfrombackup() {
        return Status::FromCode(copyFile(backupPath(), m_path, kFromBackupErrors));
    }

private:
    // The codes one direction of copyFile reports, in the order its steps can fail.
    struct CopyErrors {
        int openSource;
        int noMemory;
        int shortRead;
        int openTarget;
        int shortWrite;
    };
    static constexpr CopyErrors kToBackupErrors = {
        QV_CONFIG_TO_BACKUP_OPEN_SOURCE, QV_CONFIG_TO_BACKUP_NO_MEMORY,
        QV_CONFIG_TO_BACKUP_SHORT_READ, QV_CONFIG_TO_BACKUP_OPEN_TARGET,
        QV_CONFIG_TO_BACKUP_SHORT_WRITE};
    static constexpr CopyErrors kFromBackupErrors = {
        QV_CONFIG_FROM_BACKUP_OPEN_SOURCE, QV_CONFIG_FROM_BACKUP_NO_MEMORY,
        QV_CONFIG_FROM_BACKUP_SHORT_READ, QV_CONFIG_FROM_BACKUP_OPEN_TARGET,
        QV_CONFIG_FROM_BACKUP_SHORT_WRITE};
    static constexpr int kLoadAttempts = 3;

    void setPath(const char* path) {
        m_path = path;
        const std::string::size_type slash = m_path.rfind('/');
        // A bare file name lives in the current directory.
        const std::string directory =
            slash == std::string::npos ? std::string(".") : m_path.substr(0, slash);
        m_fileName = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
        m_backupDir = directory + "/backup";
    }

    std::string backupPath() const { return m_backupDir + "/" + m_fileName; }

    // A CFString of `key`, or null when there is no key or no loaded document.
    CFStringRef createKey(const char* key) const {
        if (key == nullptr || !m_loaded) {
            return nullptr;
        }
        return CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingUTF8);
    }

    // Runs in the constructor only, before anybody else can see the store.
    void load() NO_THREAD_SAFETY_ANALYSIS {
        int failedAttempts = 0;
        while (!loadOnce()) {
            ++failedAttempts;
            if (!copyfrombackup().ok() || failedAttempts >= kLoadAttempts) {
                return;
            }
        }
        m_loaded = true;
        struct stat fileStat;
        if (stat(m_path.c_str(), &fileStat) == 0) {
            m_inode = fileStat.st_ino;
        }
    }

    // One attempt: the file must hold a valid property list whose root is a dictionary.
    bool loadOnce() NO_THREAD_SAFETY_ANALYSIS {
        long size = 0;
        std::unique_ptr<QvPageBuffer> image = readWholeFile(m_path, size);
        if (image == nullptr || size == 0) {
            return false;
        }
        CFDataRef data = CFDataCreateWithBytesNoCopy(kCFAllocatorDefault,
                                                     reinterpret_cast<const UInt8*>(image->get()),
                                                     size, kCFAllocatorNull);
        if (data == nullptr) {
            return false;
        }
        // Any format is accepted; the format found is of no interest. Only the root is
        // changed in place (entries are replaced whole), so everything below it is read
        // immutable: immutable entries can be shared with their owners and keep their XML
        // text from one save to the next.
        CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0;
        CFPropertyListRef plist = CFPropertyListCreateWithData(
            kCFAllocatorDefault, data, kCFPropertyListImmutable, &format, nullptr);
        CFRelease(data);
        if (plist == nullptr) {
            return false;
        }
        if (CFGetTypeID(plist) != CFDictionaryGetTypeID() ||
            !CFPropertyListIsValid(plist, kCFPropertyListBinaryFormat_v1_0)) {
            CFRelease(plist);
            return false;
        }
        m_root = CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0,
                                               static_cast<CFDictionaryRef>(plist));
        CFRelease(plist);
        return m_root != nullptr;
    }

    // The whole file in a new buffer (size 0 gives an empty buffer); null when the file
    // cannot be opened, the buffer cannot be had or the read comes up short.
    static std::unique_ptr<QvPageBuffer> readWholeFile(const std::string& path, long& size) {
        FILE* file = fopen(path.c_str(), "r");
        if (file == nullptr) {
            return nullptr;
        }
        fseek(file, 0, SEEK_END);
        size = ftell(file);
        rewind(file);
        std::unique_ptr<QvPageBuffer> image;
        if (size >= 0) {
            image.reset(new (std::nothrow) QvPageBuffer(static_cast<size_t>(size)));
        }
        const bool complete = image != nullptr && image->get() != nullptr &&
                              fread(image->get(), 1, size, file) == static_cast<size_t>(size);
        fclose(file);
        if (!complete) {
            image.reset();
        }
        return image;
    }

    // Copies `source` over `target` (created or emptied, as fopen "w+" does); the result
    // is 0 or the code of the step that failed. The bytes go from file to file through a
    // small buffer, or inside the kernel where it can: the whole file passes on every
    // save, and a buffer its size would either stay resident or cost a page fault per
    // page on every save.
    static int copyFile(const std::string& source, const std::string& target,
                        const CopyErrors& errors) {
        const int in = open(source.c_str(), O_RDONLY);
        if (in == -1) {
            return errors.openSource;
        }
        struct stat sourceStat;
        if (fstat(in, &sourceStat) != 0 || !S_ISREG(sourceStat.st_mode)) {
            close(in);
            return errors.shortRead;
        }
        std::unique_ptr<char[]> buffer(new (std::nothrow) char[kCopyChunk]);
        if (buffer == nullptr) {
            close(in);
            return errors.noMemory;
        }
        const int out = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        if (out == -1) {
            close(in);
            return errors.openTarget;
        }
        int result = copyBytes(in, out, sourceStat.st_size, buffer.get(), errors);
        if (close(out) != 0 && result == QV_CONFIG_OK) {
            result = errors.shortWrite;
        }
        close(in);
        return result;
    }

    static constexpr size_t kCopyChunk = 64 * 1024;

    // Copies the first `size` bytes of `in` to `out`.
    static int copyBytes(int in, int out, off_t size, char* buffer, const CopyErrors& errors) {
        off_t done = 0;
#ifdef __linux__
        while (done < size) {
            const ssize_t copied =
                copy_file_range(in, nullptr, out, nullptr, static_cast<size_t>(size - done), 0);
            if (copied > 0) {
                done += copied;
            } else if (copied == 0) {
                return errors.shortRead;
            } else if (errno == EXDEV || errno == ENOSYS || errno == EINVAL ||
                       errno == EOPNOTSUPP) {
                break;  // this pair of files cannot be copied in the kernel
            } else {
                return errno == EIO ? errors.shortRead : errors.shortWrite;
            }
        }
#endif
        while (done < size) {
            const size_t chunk = static_cast<size_t>(std::min<off_t>(size - done, kCopyChunk));
            const ssize_t got = pread(in, buffer, chunk, done);
            if (got <= 0) {
                return errors.shortRead;
            }
            if (pwrite(out, buffer, static_cast<size_t>(got), done) != got) {
                return errors.shortWrite;
            }
            done += got;
        }
        return QV_CONFIG_OK;
    }

    // Makes the write descriptor point at the file now under the path: a removed file is
    // recreated (0600), a replaced one opened anew. The earlier descriptor stays open on
    // purpose. False when the new file cannot be opened.
    bool followReplacedFile() REQUIRES(m_lock) {
        struct stat fileStat;
        const bool removed = stat(m_path.c_str(), &fileStat) != 0;
        if (!removed && fileStat.st_ino == m_inode) {
            return true;
        }
        const int fd = removed ? open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600)
                               : open(m_path.c_str(), O_WRONLY);
        if (fd == -1) {
            return false;
        }
        if (removed && fstat(fd, &fileStat) != 0) {
            fileStat.st_ino = 0;
        }
        m_fd = fd;
        m_inode = fileStat.st_ino;
        return true;
    }

    // Writes `bytes` over the file, first byte last. Until then the file starts with a NUL,
    // which no property list does, so a write cut short (killed, disk full) leaves a file
    // that never parses and loading falls back to the backup, instead of the new
    // document's start over the old one's end, which can parse as a third document.
    // Overwriting in place keeps the file's pages: emptying it first made every save free
    // and allocate them all again.
    bool overwriteInPlace(const UInt8* bytes, CFIndex length) REQUIRES(m_lock) {
        if (length <= 0) {
            return false;
        }
        const auto rest = static_cast<size_t>(length - 1);
        m_fileIncomplete = true;
        if (pwrite(m_fd, "", 1, 0) != 1 ||
            pwrite(m_fd, bytes + 1, rest, 1) != static_cast<ssize_t>(rest) ||
            ftruncate(m_fd, length) != 0 || pwrite(m_fd, bytes, 1, 0) != 1) {
            return false;
        }
        m_fileIncomplete = false;
        return true;
    }

    // Set once by the constructor.
    bool m_loaded = false;
    std::string m_path;
    std::string m_backupDir;
    std::string m_fileName;
    Lock m_lock;
    CFMutableDictionaryRef m_root GUARDED_BY(m_lock) = nullptr;
    int32_t m_fd GUARDED_BY(m_lock) = -1;
    uint64_t m_inode GUARDED_BY(m_lock) = 0;
    // True while the file may hold less than a whole document (a write failed part way).
    bool m_fileIncomplete GUARDED_BY(m_lock) = false;
};

}  // namespace vela
}  // namespace qor
