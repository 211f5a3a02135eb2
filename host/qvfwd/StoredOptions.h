// The firewall options as the configuration file holds them, for the daemon's status.
// The plug-in owns the file; the daemon only reads it, and shows the schema's default
// for an option the file leaves out, as the plug-in does.
#pragma once

#include <stdint.h>

#include <string>

#include "QvFirewall.h"

namespace qvfwd {

struct StoredOptions {
    std::string path;
    int64_t normalSet = QV_FW_DEFAULT_NORMAL_SET;
    int64_t exceptionSet = QV_FW_DEFAULT_EXCEPTION_SET;
    std::string fwLogPath = QV_FW_DEFAULT_LOG_PATH;
    std::string syslogConf = QV_FW_DEFAULT_SYSLOG_CONF;
};

// Reads "FwOptions" from a property list's text (XML or binary). False when the text is
// not a property list with a dictionary at its root; missing options keep their defaults.
bool ParseStoredOptions(const std::string& plist, StoredOptions* options);

// Finds "QvFw.conf.plist" as the plug-in does ($QV_CONF_DIR) and reads it.
bool ReadStoredOptions(StoredOptions* options);

}  // namespace qvfwd
