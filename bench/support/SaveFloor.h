// The least any store must do to save a document it already has as bytes: copy the file
// on disk into the backup with plain read and write, then overwrite the file in place
// (lseek, write, ftruncate, fsync). The store's own save does this plus the conversion
// and the XML writer, so the two times differ by exactly that overhead.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace qvbench {

class SaveFloor {
public:
    SaveFloor(const std::string& file, const std::string& backup)
        : m_file(file), m_backup(backup), m_fd(open(file.c_str(), O_WRONLY)) {}
    ~SaveFloor() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    SaveFloor(const SaveFloor&) = delete;
    SaveFloor& operator=(const SaveFloor&) = delete;

    // One save of `bytes`; false when a call failed.
    bool save(const std::string& bytes) {
        return copyToBackup() && lseek(m_fd, 0, SEEK_SET) == 0 &&
               write(m_fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) &&
               ftruncate(m_fd, static_cast<off_t>(bytes.size())) == 0 && fsync(m_fd) == 0;
    }

private:
    bool copyToBackup() {
        const int in = open(m_file.c_str(), O_RDONLY);
        if (in < 0) {
            return false;
        }
        const off_t size = lseek(in, 0, SEEK_END);
        m_image.resize(size > 0 ? static_cast<size_t>(size) : 0);
        const bool read =
            size >= 0 && pread(in, m_image.data(), m_image.size(), 0) == static_cast<ssize_t>(size);
        close(in);
        const int out = open(m_backup.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (!read || out < 0) {
            return false;
        }
        const bool written =
            write(out, m_image.data(), m_image.size()) == static_cast<ssize_t>(m_image.size());
        return close(out) == 0 && written;
    }

    std::string m_file;
    std::string m_backup;
    int m_fd;
    std::vector<char> m_image;
};

}  // namespace qvbench
