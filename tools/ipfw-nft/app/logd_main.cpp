// ipfw-logd: writes the kernel's ipfw log line for every packet that a logging rule of
// table "inet ipfw" sends to NFLOG, where syslog's configuration routes "ipfw"
// (IPFW_SIM_SYSLOG_CONF), honouring logamount and the verbose switch kept in the rule
// state (IPFW_SIM_STATE), as build/nft/ipfw and build/nft/sysctl set them. Runs in the
// foreground until SIGTERM or SIGINT.

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "FileStateStore.h"
#include "FreeBsdTools.h"
#include "NflogSource.h"
#include "SystemEnvironment.h"
#include "ipfwnft/KernelLogWriter.h"
#include "ipfwnft/LogTag.h"

namespace {

volatile std::sig_atomic_t g_stop = 0;

void requestStop(int) {
    g_stop = 1;
}

}  // namespace

int main() {
    std::signal(SIGTERM, requestStop);
    std::signal(SIGINT, requestStop);
    std::signal(SIGPIPE, SIG_IGN);
    std::unique_ptr<ipfwsim::SystemEnvironment> environment;
    ipfwsim::Status status = ipfwsim::SystemEnvironment::create(environment);
    if (!status.ok()) {
        std::cerr << "ipfw-logd: " << status.message << std::endl;
        return 1;
    }
    ipfwnft::NflogSource source([&environment](const ipfwnft::LoggedPacket& packet) {
        // The state is locked for each packet only, so that ipfw is never kept waiting.
        ipfwsim::FileStateStore store(ipfwsim::StatePath(), true);
        ipfwsim::Status written = ipfwnft::KernelLogWriter(*environment, store).write(packet);
        if (!written.ok()) {
            std::cerr << "ipfw-logd: " << written.message << std::endl;
        }
    });
    std::string error;
    if (!source.open(ipfwnft::kNflogGroup, error)) {
        std::cerr << "ipfw-logd: " << error << std::endl;
        return 1;
    }
    std::cerr << "ipfw-logd: reading NFLOG group " << ipfwnft::kNflogGroup << std::endl;
    while (g_stop == 0) {
        if (!source.pump(500)) {
            std::cerr << "ipfw-logd: NFLOG socket failed" << std::endl;
            return 1;
        }
    }
    std::cerr << "ipfw-logd: stopped" << std::endl;
    return 0;
}
