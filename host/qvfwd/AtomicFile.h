// Replaces a file whole or not at all: the text goes to PATH.tmp, is synced, and is
// renamed over PATH, so a reader (node exporter, the next start) never sees half of it.
#pragma once

#include <sys/types.h>

#include <string>

namespace qvfwd {

// False with the reason in `error`. `mode` is set explicitly, whatever the umask.
bool WriteFileAtomically(const std::string& path, const std::string& text, mode_t mode,
                         std::string* error);

// The whole file; false when it cannot be read (a missing file included).
bool ReadWholeFile(const std::string& path, std::string* text);

}  // namespace qvfwd
