// Where the rule generator says why it refused a rule and what it wrote. The plug-in
// sends it to its debug log; a program without one leaves the generator silent, so the
// library needs no log of its own.
#pragma once

#include <string>

namespace qor {
namespace vela {

class RuleTextLog {
public:
    // The host debug log's levels, which the plug-in's log takes as they are.
    static constexpr int kError = 3;
    static constexpr int kDetail = 7;

    virtual ~RuleTextLog() = default;

    // Asked before a line is put together, so that a quiet log costs no text.
    virtual bool Enabled(int level) const = 0;
    virtual void Write(int level, const std::string& line) const = 0;
};

}  // namespace vela
}  // namespace qor
