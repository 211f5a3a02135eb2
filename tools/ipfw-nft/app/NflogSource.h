#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ipfwnft/LoggedPacket.h"

struct nflog_handle;
struct nflog_g_handle;
struct nflog_data;
struct nfgenmsg;

namespace ipfwnft {

// The packets of one NFLOG group, through libnetfilter_log, in this process's network
// namespace, handed over in batches. The kernel is asked to gather packets into large
// messages and to number them, and the socket's receive buffer is sized so that a burst
// waits in the kernel while a batch is being written instead of being dropped; what the
// kernel drops all the same shows as a gap in the numbers.
class NflogSource {
public:
    // Room for a burst of 20,000 logged packets with the reader asleep, several times
    // over (a small packet takes about 200 bytes of it; the kernel doubles the figure).
    static constexpr int kDefaultReceiveBuffer = 16 << 20;

    struct Batch {
        std::vector<LoggedPacket> packets;
        bool overflowed = false;  // the kernel said it dropped some (ENOBUFS)
    };

    NflogSource();
    ~NflogSource();
    NflogSource(const NflogSource&) = delete;
    NflogSource& operator=(const NflogSource&) = delete;

    // Binds the group with a receive buffer of about `receiveBuffer` bytes; false with
    // the reason when the kernel refuses.
    bool open(uint16_t group, int receiveBuffer, std::string& error);
    // What open() obtained, for the start-up line: "receive buffer 64 MiB, packets numbered".
    const std::string& setup() const { return setup_; }
    // Waits up to `timeoutMs` for packets, then takes what the socket holds, up to a
    // batch's worth. False when the socket failed (an interrupted wait is no failure).
    bool receive(int timeoutMs, Batch& batch);

private:
    static int onPacket(nflog_g_handle*, nfgenmsg*, nflog_data* data, void* self);
    bool configureKernel(uint16_t group, std::string& error);
    void sizeReceiveBuffer(int bytes);
    const std::string& interfaceName(uint32_t index);

    nflog_handle* handle_ = nullptr;
    nflog_g_handle* group_ = nullptr;
    std::vector<char> buffer_;
    Batch* filling_ = nullptr;
    std::map<uint32_t, std::string> interfaces_;  // for one batch: names may change
    std::string setup_;
};

}  // namespace ipfwnft
