// The rule generator's lines in the plug-in's debug log, exactly as the plug-in's own
// code writes them there.
#pragma once

#include <string>

#include "RuleTextLog.h"

namespace qor {
namespace vela {

class DebugRuleTextLog : public RuleTextLog {
public:
    // Stateless, so one serves every generator of the plug-in.
    static const DebugRuleTextLog* Get();

    bool Enabled(int level) const override;
    void Write(int level, const std::string& line) const override;
};

}  // namespace vela
}  // namespace qor
