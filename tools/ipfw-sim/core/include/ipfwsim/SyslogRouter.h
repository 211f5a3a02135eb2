#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ipfwsim {

// Where FreeBSD's syslogd writes one message, given the text of syslog.conf.
// Program blocks run from a "!prog" line to the next "!" line ("!*" ends them), host
// blocks likewise from "+host"/"-host"; "#!", "#+" and "#-" count too. A line
// "selector<blanks>action" applies when its blocks admit the message and its selector
// ("fac,fac.[!][<=>]level;...") admits facility and priority. Only file actions
// (starting with '/', optionally after '-') are returned, each once, in file order.
std::vector<std::string> routeSyslogMessage(std::string_view configuration,
                                            const std::string& program, int facility, int priority,
                                            const std::string& localHost);

}  // namespace ipfwsim
