// The configuration file a benchmark's plug-in or daemon starts from: default options with
// the firewall log and the logger configuration where the benchmark wants them, and
// `count` stored normal rules, written through the store itself.
#pragma once

#include <cstdlib>
#include <string>

#include "BenchFiles.h"
#include "BenchRules.h"
#include "QvConfig.h"
#include "VelaFwInternalMsgConvert.h"
#include "VelaFwMsgConvert.h"

namespace qvbench {

inline void writeBenchConfiguration(const std::string& path, int count, const std::string& fwLog,
                                    const std::string& syslogConf,
                                    unsigned int spacing = kRuleSpacing) {
    writeWhole(path, "<plist version=\"1.0\"><dict/></plist>");
    qor::vela::QvConfig<qor::vela::Mutex> store(path.c_str());
    qor::vela::FwOptions options;
    options.set_enable_fw(true);
    options.set_enable_notify(true);
    options.set_default_set_num(19);
    options.set_exception_set_num(18);
    options.set_fw_log_path(fwLog);
    options.set_syslog_conf(syslogConf);
    if (!store.set(options, "FwOptions").ok() ||
        !store.set(benchRules(count, spacing), "FwRuleCfg").ok() || !store.save().ok()) {
        std::abort();
    }
}

}  // namespace qvbench
