#include "RulesetMonitor.h"

#include <dirent.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

namespace ipfwnft {
namespace {

using Kind = RulesetEvent::Kind;

// A whole rebuild of many thousand rules is announced in one burst while the enforcer
// itself waits for the kernel; the burst must fit.
constexpr int kReceiveBuffer = 64 << 20;
constexpr size_t kDatagram = 1 << 20;
// nft keeps a rule's comment in its user data: type, length, bytes ending in a zero.
constexpr uint8_t kUserDataComment = 0;

// The payload of the first attribute of `type` among `attributes`.
std::optional<std::string_view> attribute(std::string_view attributes, uint16_t type) {
    while (attributes.size() >= NLA_HDRLEN) {
        nlattr head;
        std::memcpy(&head, attributes.data(), sizeof(head));
        if (head.nla_len < NLA_HDRLEN || head.nla_len > attributes.size()) {
            return std::nullopt;
        }
        if ((head.nla_type & NLA_TYPE_MASK) == type) {
            return attributes.substr(NLA_HDRLEN, head.nla_len - NLA_HDRLEN);
        }
        attributes.remove_prefix(std::min<size_t>(NLA_ALIGN(head.nla_len), attributes.size()));
    }
    return std::nullopt;
}

std::string text(std::optional<std::string_view> value) {
    std::string_view bytes = value.value_or(std::string_view());
    return std::string(bytes.substr(0, bytes.find('\0')));
}

uint64_t bigEndian(std::optional<std::string_view> value) {
    uint64_t number = 0;
    for (char byte : value.value_or(std::string_view())) {
        number = number << 8 | static_cast<uint8_t>(byte);
    }
    return number;
}

// "jump CHAIN" when the rule's one expression is a jump.
std::string onlyJump(std::string_view expressions) {
    const auto first = attribute(expressions, NFTA_LIST_ELEM);
    if (!first || NLA_ALIGN(first->size() + NLA_HDRLEN) < expressions.size() ||
        text(attribute(*first, NFTA_EXPR_NAME)) != "immediate") {
        return {};
    }
    std::optional<std::string_view> verdict = attribute(*first, NFTA_EXPR_DATA);
    for (uint16_t level : {uint16_t{NFTA_IMMEDIATE_DATA}, uint16_t{NFTA_DATA_VERDICT}}) {
        verdict = verdict ? attribute(*verdict, level) : std::nullopt;
    }
    if (!verdict || static_cast<uint32_t>(bigEndian(attribute(*verdict, NFTA_VERDICT_CODE))) !=
                        static_cast<uint32_t>(NFT_JUMP)) {
        return {};
    }
    return "jump " + text(attribute(*verdict, NFTA_VERDICT_CHAIN));
}

std::string comment(std::string_view userData) {
    while (userData.size() >= 2) {
        const uint8_t type = static_cast<uint8_t>(userData[0]);
        const size_t length = static_cast<uint8_t>(userData[1]);
        if (length + 2 > userData.size()) {
            break;
        }
        if (type == kUserDataComment) {
            return "comment \"" + text(userData.substr(2, length)) + "\"";
        }
        userData.remove_prefix(2 + length);
    }
    return {};
}

std::string familyName(uint8_t family) {
    switch (family) {
        case NFPROTO_INET:
            return "inet";
        case NFPROTO_IPV4:
            return "ip";
        case NFPROTO_IPV6:
            return "ip6";
        case NFPROTO_ARP:
            return "arp";
        case NFPROTO_BRIDGE:
            return "bridge";
        case NFPROTO_NETDEV:
            return "netdev";
        default:
            return "family" + std::to_string(family);
    }
}

void readRule(std::string_view attributes, RulesetEvent& event) {
    event.chain = text(attribute(attributes, NFTA_RULE_CHAIN));
    event.handle = bigEndian(attribute(attributes, NFTA_RULE_HANDLE));
    if (event.kind == Kind::RuleAdded) {
        event.text = onlyJump(attribute(attributes, NFTA_RULE_EXPRESSIONS).value_or(""));
        if (event.text.empty()) {
            event.text = comment(attribute(attributes, NFTA_RULE_USERDATA).value_or(""));
        }
    }
}

// The event of one nf_tables message; false for messages that are none.
bool readMessage(uint16_t type, uint8_t family, std::string_view attributes, RulesetEvent& event) {
    if (type >> 8 != NFNL_SUBSYS_NFTABLES) {
        return false;
    }
    uint16_t tableAttribute = 0;
    switch (type & 0xff) {
        case NFT_MSG_NEWTABLE:
        case NFT_MSG_DELTABLE:
            event.kind = (type & 0xff) == NFT_MSG_NEWTABLE ? Kind::TableAdded : Kind::TableDeleted;
            tableAttribute = NFTA_TABLE_NAME;
            break;
        case NFT_MSG_NEWCHAIN:
        case NFT_MSG_DELCHAIN:
            event.kind = (type & 0xff) == NFT_MSG_NEWCHAIN ? Kind::ChainAdded : Kind::ChainDeleted;
            event.chain = text(attribute(attributes, NFTA_CHAIN_NAME));
            tableAttribute = NFTA_CHAIN_TABLE;
            break;
        case NFT_MSG_NEWRULE:
        case NFT_MSG_DELRULE:
            event.kind = (type & 0xff) == NFT_MSG_NEWRULE ? Kind::RuleAdded : Kind::RuleDeleted;
            readRule(attributes, event);
            tableAttribute = NFTA_RULE_TABLE;
            break;
        case NFT_MSG_NEWSET:
        case NFT_MSG_DELSET:
            tableAttribute = NFTA_SET_TABLE;
            break;
        case NFT_MSG_NEWSETELEM:
        case NFT_MSG_DELSETELEM:
            tableAttribute = NFTA_SET_ELEM_LIST_TABLE;
            break;
        case NFT_MSG_NEWOBJ:
        case NFT_MSG_DELOBJ:
            tableAttribute = NFTA_OBJ_TABLE;
            break;
        case NFT_MSG_NEWFLOWTABLE:
        case NFT_MSG_DELFLOWTABLE:
            tableAttribute = NFTA_FLOWTABLE_TABLE;
            break;
        case NFT_MSG_NEWGEN:
            event.kind = Kind::Generation;
            event.pid = static_cast<int64_t>(bigEndian(attribute(attributes, NFTA_GEN_PROC_PID)));
            event.process = text(attribute(attributes, NFTA_GEN_PROC_NAME));
            return true;
        default:
            return false;
    }
    event.table = familyName(family) + " " + text(attribute(attributes, tableAttribute));
    return true;
}

void readDatagram(std::string_view datagram, std::vector<RulesetEvent>& events) {
    while (datagram.size() >= NLMSG_HDRLEN) {
        nlmsghdr head;
        std::memcpy(&head, datagram.data(), sizeof(head));
        if (head.nlmsg_len < NLMSG_HDRLEN || head.nlmsg_len > datagram.size()) {
            return;
        }
        const std::string_view body = datagram.substr(NLMSG_HDRLEN, head.nlmsg_len - NLMSG_HDRLEN);
        if (body.size() >= NLMSG_ALIGN(sizeof(nfgenmsg))) {
            nfgenmsg generic;
            std::memcpy(&generic, body.data(), sizeof(generic));
            RulesetEvent event;
            event.port = head.nlmsg_pid;
            if (readMessage(head.nlmsg_type, generic.nfgen_family,
                            body.substr(NLMSG_ALIGN(sizeof(nfgenmsg))), event)) {
                events.push_back(std::move(event));
            }
        }
        datagram.remove_prefix(std::min<size_t>(NLMSG_ALIGN(head.nlmsg_len), datagram.size()));
    }
}

// The ports of this process's nf_tables sockets other than `except`.
std::vector<uint32_t> netfilterPorts(int except) {
    std::vector<uint32_t> ports;
    DIR* descriptors = opendir("/proc/self/fd");
    for (dirent* entry; descriptors != nullptr && (entry = readdir(descriptors)) != nullptr;) {
        const int fd = std::atoi(entry->d_name);
        int protocol = -1;
        socklen_t size = sizeof(protocol);
        sockaddr_nl address{};
        socklen_t length = sizeof(address);
        if (fd != except && entry->d_name[0] != '.' &&
            getsockopt(fd, SOL_SOCKET, SO_PROTOCOL, &protocol, &size) == 0 &&
            protocol == NETLINK_NETFILTER &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
            address.nl_family == AF_NETLINK) {
            ports.push_back(address.nl_pid);
        }
    }
    if (descriptors != nullptr) {
        closedir(descriptors);
    }
    return ports;
}

}  // namespace

bool RulesetMonitor::isOwnPort(uint32_t port) {
    // libnftables opens its socket when it first needs it: looked for again when unknown.
    if (std::find(ownPorts_.begin(), ownPorts_.end(), port) == ownPorts_.end()) {
        ownPorts_ = netfilterPorts(fd_);
    }
    return port != 0 && std::find(ownPorts_.begin(), ownPorts_.end(), port) != ownPorts_.end();
}

RulesetMonitor::RulesetMonitor()
    : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_NETFILTER)) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    const int group = NFNLGRP_NFTABLES;
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        setsockopt(fd_, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) != 0) {
        const int error = errno;
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = -1;
        errno = error;
        return;
    }
    // Beyond the system's limit where privileges allow it, else up to that limit.
    if (setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer, sizeof(kReceiveBuffer)) != 0) {
        (void)setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof(kReceiveBuffer));
    }
}

RulesetMonitor::~RulesetMonitor() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

void RulesetMonitor::drain(std::vector<RulesetEvent>& events, bool& overflowed) {
    buffer_.resize(kDatagram);
    while (fd_ >= 0) {
        const ssize_t length = recv(fd_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        if (length > 0) {
            readDatagram(std::string_view(buffer_.data(), static_cast<size_t>(length)), events);
        } else if (length < 0 && errno == ENOBUFS) {
            overflowed = true;
        } else if (length == 0 || errno != EINTR) {
            return;
        }
    }
}

}  // namespace ipfwnft
