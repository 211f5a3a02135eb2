// Where qvfwd finds the plug-in when --plugin does not say: the library directory beside
// its own binary directory, as installed (bin/ and lib/ under one prefix) or as built
// (build/bin and build/lib).
#pragma once

#include <string>

namespace qvfwd {

// The directory of the running executable, without a trailing slash; empty if unknown.
std::string ExecutableDirectory();

// The first of the candidate plug-in paths that exists, else the first candidate.
std::string DefaultPluginPath();

}  // namespace qvfwd
