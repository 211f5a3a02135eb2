#pragma once

#include <cstddef>
#include <string_view>

#include "ipfwsim/Status.h"

namespace ipfwsim {

// The bytes of the rule state. The binary keeps them in a locked file; tests keep
// them in memory. `read` gives the current content (a fresh empty state when none
// exists yet) and stays valid until the next change.
class StateStore {
public:
    virtual ~StateStore() = default;
    virtual Status read(std::string_view& content) = 0;
    virtual Status append(std::string_view text) = 0;
    virtual Status overwrite(size_t offset, std::string_view text) = 0;
    virtual Status replace(std::string_view content) = 0;
};

}  // namespace ipfwsim
