#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ipfwnft/KernelTable.h"
#include "ipfwsim/StateFile.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// What one ipfw command changed: the numbers whose rules it added or deleted (a set
// switch shows in the states' headers). Anything else (a flush, a set deleted or moved)
// is `whole`.
struct RuleChange {
    std::vector<std::pair<uint32_t, uint32_t>> numbers;  // inclusive ranges
    bool whole = false;
};

// The script that takes the kernel's tables from the state `before` to the state `after`
// by touching only what differs in the blocks of the changed numbers: elements added to
// or deleted from the maps of keyed rules, runs of lines written anew or appended to,
// block chains' lines appended, cut by handle (read from `kernel`) or written anew where
// the pieces moved. Empty with `rebuild` set when only a whole table will do: a change
// that touches a rule looking up kept flows (their lookup lines depend on every rule),
// or a set switch while such rules exist.
ipfwsim::Status compileChange(const ipfwsim::StateFile& before, const ipfwsim::StateFile& after,
                              const RuleChange& change, KernelTable& kernel, std::string& script,
                              bool& rebuild);

// Whether any rule in `file` looks up kept flows; read off the stored words.
bool holdsStateLookups(const ipfwsim::StateFile& file);

}  // namespace ipfwnft
