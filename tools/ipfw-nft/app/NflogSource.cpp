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

constexpr uint32_t kCopyBytes = 128;  // headers are all a log line needs
// The kernel gathers packets into messages of this size (it allows up to 128 KiB, taken
// in atomic context, where smaller blocks are likelier to be had), sending each when it
// is full, holds kMessagePackets or is kFlushHundredths old.
constexpr uint32_t kMessageBytes = 64 << 10;
constexpr uint32_t kMessagePackets = 1024;
constexpr uint32_t kFlushHundredths = 1;
// A batch is written in one go; bounded so that a flood still lets ipfw have the state.
constexpr size_t kBatchPackets = 4096;

std::string errnoText(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

}  // namespace

NflogSource::NflogSource() : buffer_(2 * kMessageBytes) {}

NflogSource::~NflogSource() {
    if (group_ != nullptr) {
        nflog_unbind_group(group_);
    }
    if (handle_ != nullptr) {
        nflog_close(handle_);
    }
}

int NflogSource::onPacket(nflog_g_handle*, nfgenmsg*, nflog_data* data, void* self) {
    NflogSource& source = *static_cast<NflogSource*>(self);
    LoggedPacket& packet = source.filling_->packets.emplace_back();
    const char* prefix = nflog_get_prefix(data);
    packet.prefix = prefix != nullptr ? prefix : "";
    char* payload = nullptr;
    const int length = nflog_get_payload(data, &payload);
    if (length > 0) {
        packet.payload.assign(payload, payload + length);
    }
    packet.inInterface = source.interfaceName(nflog_get_indev(data));
    packet.outInterface = source.interfaceName(nflog_get_outdev(data));
    uint32_t sequence = 0;
    if (nflog_get_seq(data, &sequence) == 0) {
        packet.sequence = sequence;
    }
    return 0;
}

const std::string& NflogSource::interfaceName(uint32_t index) {
    auto found = interfaces_.find(index);
    if (found == interfaces_.end()) {
        char name[IF_NAMESIZE] = {};
        const bool known = index != 0 && if_indextoname(index, name) != nullptr;
        found = interfaces_.emplace(index, known ? name : "").first;
    }
    return found->second;
}

bool NflogSource::open(uint16_t group, int receiveBuffer, std::string& error) {
    handle_ = nflog_open();
    if (handle_ == nullptr) {
        error = errnoText("nflog_open");
        return false;
    }
    if (!configureKernel(group, error)) {
        return false;
    }
    // After the group's set-up: nflog_set_nlbufsiz sizes the buffer for ten messages.
    sizeReceiveBuffer(receiveBuffer);
    nflog_callback_register(group_, onPacket, this);
    return true;
}

bool NflogSource::configureKernel(uint16_t group, std::string& error) {
    nflog_unbind_pf(handle_, AF_INET);
    const std::string what = "cannot bind NFLOG group " + std::to_string(group);
    if (nflog_bind_pf(handle_, AF_INET) < 0 ||
        (group_ = nflog_bind_group(handle_, group)) == nullptr ||
        nflog_set_mode(group_, NFULNL_COPY_PACKET, kCopyBytes) < 0) {
        error = errnoText(what);
        return false;
    }
    if (nflog_set_nlbufsiz(group_, kMessageBytes) < 0 ||
        nflog_set_qthresh(group_, kMessagePackets) < 0 ||
        nflog_set_timeout(group_, kFlushHundredths) < 0) {
        error = errnoText("cannot set NFLOG group " + std::to_string(group) + "'s batching");
        return false;
    }
    // Without numbers a loss could be noticed but not counted: worth saying, not fatal.
    setup_ = nflog_set_flags(group_, NFULNL_CFG_F_SEQ) == 0
                 ? "packets numbered"
                 : errnoText("packets not numbered, losses cannot be counted");
    return true;
}

void NflogSource::sizeReceiveBuffer(int bytes) {
    const int fd = nflog_fd(handle_);
    // As root the buffer may pass net.core.rmem_max; otherwise it is capped there.
    const bool forced = setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) == 0;
    if (!forced) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
    int granted = 0;
    socklen_t length = sizeof granted;
    getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &granted, &length);
    setup_ = "receive buffer " + std::to_string(granted >> 10) + " KiB" +
             (forced ? "" : " (capped by net.core.rmem_max)") + ", " + setup_;
}

bool NflogSource::receive(int timeoutMs, Batch& batch) {
    batch.packets.clear();
    batch.overflowed = false;
    interfaces_.clear();
    pollfd waiting{nflog_fd(handle_), POLLIN, 0};
    const int ready = poll(&waiting, 1, timeoutMs);
    if (ready <= 0) {
        return ready == 0 || errno == EINTR;
    }
    filling_ = &batch;
    bool healthy = true;
    while (batch.packets.size() < kBatchPackets) {
        const ssize_t received = recv(waiting.fd, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        if (received >= 0) {
            nflog_handle_packet(handle_, buffer_.data(), static_cast<int>(received));
        } else if (errno == ENOBUFS) {
            // The kernel dropped messages; the numbers of the next packets say how many.
            batch.overflowed = true;
        } else if (errno != EINTR) {
            healthy = errno == EAGAIN;
            break;
        }
    }
    filling_ = nullptr;
    return healthy;
}

}  // namespace ipfwnft
