#include "StdConsole.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>

namespace ipfwsim {
namespace {

void writeFully(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;  // nobody left to tell
        }
        text.remove_prefix(static_cast<size_t>(written));
    }
}

}  // namespace

void StdConsole::err(std::string_view text) {
    writeFully(STDERR_FILENO, text);
}

void StdConsole::flushOut() {
    writeFully(STDOUT_FILENO, pending_);
    pending_.clear();
}

bool StdConsole::readLine(std::string& line) {
    return static_cast<bool>(std::getline(std::cin, line));
}

}  // namespace ipfwsim
