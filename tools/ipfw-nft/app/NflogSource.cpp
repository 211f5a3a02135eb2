#include "NflogSource.h"

#include <errno.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstring>

extern "C" {
#include <libnetfilter_log/libnetfilter_log.h>
}

namespace ipfwnft {
namespace {

std::string interfaceName(uint32_t index) {
    char name[IF_NAMESIZE] = {};
    return index != 0 && if_indextoname(index, name) != nullptr ? name : "";
}

int onPacket(nflog_g_handle*, nfgenmsg*, nflog_data* data, void* self) {
    LoggedPacket packet;
    const char* prefix = nflog_get_prefix(data);
    packet.prefix = prefix != nullptr ? prefix : "";
    char* payload = nullptr;
    const int length = nflog_get_payload(data, &payload);
    if (length > 0) {
        packet.payload.assign(payload, payload + length);
    }
    packet.inInterface = interfaceName(nflog_get_indev(data));
    packet.outInterface = interfaceName(nflog_get_outdev(data));
    static_cast<NflogSource::Handler*>(self)->operator()(packet);
    return 0;
}

}  // namespace

NflogSource::~NflogSource() {
    if (group_ != nullptr) {
        nflog_unbind_group(group_);
    }
    if (handle_ != nullptr) {
        nflog_close(handle_);
    }
}

bool NflogSource::open(uint16_t group, std::string& error) {
    constexpr uint32_t kCopyBytes = 128;  // headers are all a log line needs
    handle_ = nflog_open();
    if (handle_ == nullptr) {
        error = std::string("nflog_open: ") + std::strerror(errno);
        return false;
    }
    nflog_unbind_pf(handle_, AF_INET);
    if (nflog_bind_pf(handle_, AF_INET) < 0 ||
        (group_ = nflog_bind_group(handle_, group)) == nullptr ||
        nflog_set_mode(group_, NFULNL_COPY_PACKET, kCopyBytes) < 0) {
        error = "cannot bind NFLOG group " + std::to_string(group) + ": " + std::strerror(errno);
        return false;
    }
    nflog_callback_register(group_, onPacket, &handler_);
    return true;
}

bool NflogSource::pump(int timeoutMs) {
    pollfd waiting{nflog_fd(handle_), POLLIN, 0};
    const int ready = poll(&waiting, 1, timeoutMs);
    if (ready <= 0) {
        return ready == 0 || errno == EINTR;
    }
    char buffer[65536];
    const ssize_t received = recv(waiting.fd, buffer, sizeof(buffer), MSG_DONTWAIT);
    if (received < 0) {
        // ENOBUFS: the kernel dropped messages while we were slow; carry on.
        return errno == EINTR || errno == EAGAIN || errno == ENOBUFS;
    }
    nflog_handle_packet(handle_, buffer, static_cast<int>(received));
    return true;
}

}  // namespace ipfwnft
