#include "ipfwsim/Killall.h"

#include <strings.h>

#include <cctype>
#include <cstdlib>

namespace ipfwsim {
namespace {

// The spellings killall accepts for SIGHUP: -HUP, -SIGHUP (any case) and -1.
bool isHangup(const std::string& word) {
    if (word.size() < 2 || word[0] != '-') {
        return false;
    }
    const char* signal = word.c_str() + 1;
    if (std::isdigit(static_cast<unsigned char>(*signal)) != 0) {
        char* end = nullptr;
        return std::strtol(signal, &end, 10) == 1 && *end == '\0';
    }
    if (strncasecmp(signal, "sig", 3) == 0) {
        signal += 3;
    }
    return strcasecmp(signal, "hup") == 0;
}

}  // namespace

int Killall::run(const std::vector<std::string>& arguments) {
    if (arguments.size() == 2 && isHangup(arguments[0]) && arguments[1] == "syslogd") {
        return 0;
    }
    console_.err("killall: only 'killall -HUP syslogd' is simulated\n");
    return 1;
}

}  // namespace ipfwsim
