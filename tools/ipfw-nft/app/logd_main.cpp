// ipfw-logd: writes the kernel's ipfw log line for every packet that a logging rule of
// table "inet ipfw" sends to NFLOG, where syslog's configuration routes "ipfw"
// (IPFW_SIM_SYSLOG_CONF), honouring logamount and the verbose switch kept in the rule
// state (IPFW_SIM_STATE), as build/nft/ipfw and build/nft/sysctl set them; packets the
// kernel could not deliver are counted in the log ("ipfw: lost N logged packets").
// Runs in the foreground until SIGTERM or SIGINT.
//
//   ipfw-logd [--receive-buffer BYTES]
//
// The receive buffer (default 16 MiB) holds what arrives while a batch is written.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
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

bool parseArguments(int argc, char** argv, int& receiveBuffer) {
    receiveBuffer = ipfwnft::NflogSource::kDefaultReceiveBuffer;
    if (argc == 1) {
        return true;
    }
    char* end = nullptr;
    const long bytes = argc == 3 ? std::strtol(argv[2], &end, 10) : 0;
    if (argc != 3 || std::strcmp(argv[1], "--receive-buffer") != 0 || *end != '\0' || bytes <= 0 ||
        bytes > (1L << 30)) {
        return false;
    }
    receiveBuffer = static_cast<int>(bytes);
    return true;
}

// The state is locked for one batch at a time, so that ipfw waits for one batch at most.
void writeBatch(ipfwnft::KernelLogWriter& writer, const ipfwnft::NflogSource::Batch& batch,
                int lockSeconds) {
    if (batch.overflowed) {
        std::cerr << "ipfw-logd: the kernel dropped logged packets (receive buffer full); the "
                     "log counts them"
                  << std::endl;
    }
    if (batch.packets.empty()) {
        return;
    }
    ipfwsim::FileStateStore store(ipfwsim::StatePath(), true, lockSeconds);
    ipfwsim::Status written = writer.write(batch.packets, store);
    if (!written.ok()) {
        std::cerr << "ipfw-logd: " << written.message << std::endl;
    }
}

}  // namespace

int main(int argc, char** argv) {
    int receiveBuffer = 0;
    if (!parseArguments(argc, argv, receiveBuffer)) {
        std::cerr << "usage: ipfw-logd [--receive-buffer BYTES]" << std::endl;
        return ipfwsim::kExitUsage;
    }
    std::signal(SIGTERM, requestStop);
    std::signal(SIGINT, requestStop);
    std::signal(SIGPIPE, SIG_IGN);
    std::unique_ptr<ipfwsim::SystemEnvironment> environment;
    int lockSeconds = 0;
    ipfwsim::Status status = ipfwsim::SystemEnvironment::create(environment);
    if (status.ok()) {
        status = ipfwsim::StateLockSeconds(lockSeconds);
    }
    if (!status.ok()) {
        std::cerr << "ipfw-logd: " << status.message << std::endl;
        return 1;
    }
    ipfwnft::NflogSource source;
    std::string error;
    if (!source.open(ipfwnft::kNflogGroup, receiveBuffer, error)) {
        std::cerr << "ipfw-logd: " << error << std::endl;
        return 1;
    }
    std::cerr << "ipfw-logd: reading NFLOG group " << ipfwnft::kNflogGroup << " (" << source.setup()
              << ")" << std::endl;
    ipfwnft::KernelLogWriter writer(*environment);
    ipfwnft::NflogSource::Batch batch;
    while (g_stop == 0) {
        if (!source.receive(500, batch)) {
            std::cerr << "ipfw-logd: NFLOG socket failed: " << std::strerror(errno) << std::endl;
            return 1;
        }
        writeBatch(writer, batch, lockSeconds);
    }
    std::cerr << "ipfw-logd: stopped" << std::endl;
    return 0;
}
