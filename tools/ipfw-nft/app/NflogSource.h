#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "ipfwnft/LoggedPacket.h"

struct nflog_handle;
struct nflog_g_handle;

namespace ipfwnft {

// The packets of one NFLOG group, through libnetfilter_log, in this process's network
// namespace.
class NflogSource {
public:
    using Handler = std::function<void(const LoggedPacket&)>;

    explicit NflogSource(Handler handler) : handler_(std::move(handler)) {}
    ~NflogSource();
    NflogSource(const NflogSource&) = delete;
    NflogSource& operator=(const NflogSource&) = delete;

    // Binds the group; false with the reason when the kernel refuses.
    bool open(uint16_t group, std::string& error);
    // Waits up to `timeoutMs` for packets and hands each to the handler. False when the
    // socket failed (an interrupted wait is no failure).
    bool pump(int timeoutMs);

private:
    Handler handler_;
    nflog_handle* handle_ = nullptr;
    nflog_g_handle* group_ = nullptr;
};

}  // namespace ipfwnft
