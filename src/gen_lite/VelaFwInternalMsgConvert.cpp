#include "VelaFwInternalMsgConvert.h"

namespace qor {
namespace vela {

bool convert(CFDictionaryRef dict, FwOptions& options) {
    if (dict == nullptr) {
        return false;
    }
    readField<bool>(dict, "enable_fw", [&](bool v) { options.set_enable_fw(v); });
    readField<bool>(dict, "enable_notify", [&](bool v) { options.set_enable_notify(v); });
    readField<int>(dict, "default_set_num", [&](int v) { options.set_default_set_num(v); });
    readField<int>(dict, "exception_set_num", [&](int v) { options.set_exception_set_num(v); });
    readField<std::string>(dict, "fw_log_path",
                           [&](const std::string& v) { options.set_fw_log_path(v); });
    readField<std::string>(dict, "syslog_conf",
                           [&](const std::string& v) { options.set_syslog_conf(v); });
    return options.IsInitialized();
}

bool convert(const FwOptions& options, CFMutableDictionaryRef dict) {
    return beginWrite(options, dict) &&
           writeField(dict, "enable_fw", options.has_enable_fw(), options.enable_fw()) &&
           writeField(dict, "enable_notify", options.has_enable_notify(),
                      options.enable_notify()) &&
           writeField(dict, "default_set_num", options.has_default_set_num(),
                      options.default_set_num()) &&
           writeField(dict, "exception_set_num", options.has_exception_set_num(),
                      options.exception_set_num()) &&
           writeField(dict, "fw_log_path", options.has_fw_log_path(), options.fw_log_path()) &&
           writeField(dict, "syslog_conf", options.has_syslog_conf(), options.syslog_conf());
}

}  // namespace vela
}  // namespace qor
