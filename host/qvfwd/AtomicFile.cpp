#include "AtomicFile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qvfwd {

bool WriteFileAtomically(const std::string& path, const std::string& text, mode_t mode,
                         std::string* error) {
    const std::string temporary = path + ".tmp";
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd < 0) {
        *error = "cannot write " + temporary + ": " + strerror(errno);
        return false;
    }
    size_t done = 0;
    bool ok = fchmod(fd, mode) == 0;
    while (ok && done < text.size()) {
        ssize_t wrote = write(fd, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) {
            continue;
        }
        ok = wrote > 0;
        done += ok ? static_cast<size_t>(wrote) : 0;
    }
    ok = ok && fsync(fd) == 0;
    const int saved = errno;
    close(fd);
    if (!ok || rename(temporary.c_str(), path.c_str()) != 0) {
        *error = "cannot write " + path + ": " + strerror(ok ? errno : saved);
        unlink(temporary.c_str());
        return false;
    }
    return true;
}

bool ReadWholeFile(const std::string& path, std::string* text) {
    FILE* file = fopen(path.c_str(), "rbe");
    if (file == nullptr) {
        return false;
    }
    text->clear();
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, file)) > 0) {
        text->append(chunk, n);
    }
    bool ok = ferror(file) == 0;
    fclose(file);
    return ok;
}

}  // namespace qvfwd
