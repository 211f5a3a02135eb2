#pragma once

namespace ipfwsim {

// The sysexits(3) values the real ipfw command returns.
enum ExitCode : int {
    kExitOk = 0,
    kExitUsage = 64,
    kExitDataErr = 65,
    kExitNoHost = 68,
    kExitUnavailable = 69,
    kExitSoftware = 70,
    kExitCantCreate = 73,
    kExitIoErr = 74,
};

}  // namespace ipfwsim
