// A configuration file of arbitrary bytes (XML or binary property list) loaded through
// FwConfig, as the plug-in loads it at start-up. Whatever the store accepts must survive
// being written back: after every list and the options are rewritten from the loaded
// messages, a second store reads the same lists and options again.
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "Config.h"
#include "FuzzWorld.h"

namespace {

using qor::vela::FwConfig;
using qor::vela::FwRuleList;

struct Loaded {
    std::string normal;
    std::string exception;
    std::string options;
};

// The file has one word for every NaN ("nan") and one for both zeros ("0.0"), as
// CoreFoundation writes them, so a NaN probability comes back as the positive quiet NaN
// whatever its sign and payload were, and -0 as 0.
void CanonicalProbabilities(FwRuleList& rules) {
    for (auto& rule : *rules.mutable_rules()) {
        if (!rule.has_probability()) {
            continue;
        }
        if (std::isnan(rule.probability())) {
            rule.set_probability(std::numeric_limits<double>::quiet_NaN());
        } else if (rule.probability() == 0.0) {
            rule.set_probability(0.0);
        }
    }
}

Loaded Read(FwConfig& config) {
    FwRuleList normal;
    FwRuleList exception;
    config.GetAllNormalRules(normal);
    config.GetExceptionRules(exception);
    CanonicalProbabilities(normal);
    CanonicalProbabilities(exception);
    Loaded loaded{normal.SerializePartialAsString(), exception.SerializePartialAsString(), ""};
    loaded.options = std::to_string(config.IsFwEnable()) + std::to_string(config.IsNotifyEnable()) +
                     " " + std::to_string(config.GetNormalSetNum()) + " " +
                     std::to_string(config.GetExceptionSetNum()) + " " + config.GetFwLogPath() +
                     "\n" + config.GetSysConfPath();
    return loaded;
}

// Rewrites both lists (an add of a rule already stored replaces it in place) and the
// options.
void RewriteEverything(FwConfig& config) {
    FwRuleList normal;
    FwRuleList exception;
    config.GetAllNormalRules(normal);
    config.GetExceptionRules(exception);
    if (normal.rules_size() > 0) {
        (void)config.AddNormalRule(normal.rules(0));
    } else {
        (void)config.FlushRules();
    }
    if (exception.rules_size() > 0) {
        (void)config.AddExcpRule(exception.rules(0));
    } else {
        (void)config.FlushExcpRules();
    }
    (void)config.SetFwEnable(config.IsFwEnable());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string dir = qvfuzz::MakeConfDir();
    const std::string path = dir + "/QvFw.conf.plist";
    unlink((dir + "/backup/QvFw.conf.plist").c_str());
    qvfuzz::WriteFile(path, data, size);

    Loaded first;
    {
        FwConfig config;
        if (!config.IsReady()) {
            return 0;
        }
        first = Read(config);
        RewriteEverything(config);
        if (!(Read(config).normal == first.normal && Read(config).exception == first.exception)) {
            qvfuzz::Fail("rewriting the lists changed them in memory");
        }
    }
    FwConfig again;
    if (!again.IsReady()) {
        qvfuzz::Fail("a document the store accepted and rewrote does not load again");
    }
    const Loaded second = Read(again);
    if (second.normal != first.normal || second.exception != first.exception) {
        qvfuzz::Fail("the rule lists changed on their way through the file");
    }
    if (second.options != first.options) {
        qvfuzz::Fail("the options changed on their way through the file");
    }
    return 0;
}
