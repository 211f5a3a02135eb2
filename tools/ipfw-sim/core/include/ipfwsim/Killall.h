#pragma once

#include <string>
#include <vector>

#include "ipfwsim/Console.h"

namespace ipfwsim {

// killall(1) as the plug-in uses it: "killall -HUP syslogd" after it changes
// syslog.conf. The simulated syslog reads its configuration for every packet, so that
// succeeds without doing anything; every other use is refused rather than guessed at.
class Killall {
public:
    explicit Killall(Console& console) : console_(console) {}

    // `arguments` excludes the program name. Returns the exit code.
    int run(const std::vector<std::string>& arguments);

private:
    Console& console_;
};

}  // namespace ipfwsim
