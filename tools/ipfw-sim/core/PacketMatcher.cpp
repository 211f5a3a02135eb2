#include "ipfwsim/PacketMatcher.h"

#include <fnmatch.h>

#include <algorithm>
#include <cstring>

#include "ipfwsim/KernelLog.h"
#include "ipfwsim/KeywordTables.h"

namespace ipfwsim {
namespace {

bool flagsMatch(uint32_t want, uint8_t bits) {
    const uint32_t set = want & 0xff;
    const uint32_t clear = (want >> 8) & 0xff;
    return (bits & clear) == 0 && (bits & set) == set;
}

bool addressListMatches(const std::vector<AddressMask>& list, uint32_t address) {
    return std::any_of(list.begin(), list.end(), [address](const AddressMask& element) {
        return (address & element.mask) == element.address;
    });
}

bool portListMatches(const std::vector<PortRange>& list, uint16_t port) {
    return std::any_of(list.begin(), list.end(), [port](const PortRange& range) {
        return port >= range.low && port <= range.high;
    });
}

bool macMatches(const MacBytes& address, const MacBytes& mask, const MacBytes& actual) {
    for (size_t i = 0; i < actual.size(); ++i) {
        if ((actual[i] & mask[i]) != address[i]) {
            return false;
        }
    }
    return true;
}

bool interfaceMatches(const InterfaceRef& wanted, const Packet& packet) {
    if (packet.iface.empty()) {
        return false;
    }
    if (!wanted.byName()) {
        return packet.hasIfaceAddress && packet.ifaceAddress == wanted.address;
    }
    if (wanted.name.find_first_of("*?[") != std::string::npos) {
        return fnmatch(wanted.name.c_str(), packet.iface.c_str(), 0) == 0;
    }
    return wanted.name == packet.iface;
}

bool hasPorts(const Packet& packet) {
    return packet.flow.proto == kProtoTcp || packet.flow.proto == kProtoUdp;
}

bool sameFlowEitherWay(const FlowId& a, const FlowId& b) {
    if (a.proto != b.proto) {
        return false;
    }
    bool forward = a.srcAddress == b.srcAddress && a.srcPort == b.srcPort &&
                   a.dstAddress == b.dstAddress && a.dstPort == b.dstPort;
    bool reverse = a.srcAddress == b.dstAddress && a.srcPort == b.dstPort &&
                   a.dstAddress == b.srcAddress && a.dstPort == b.srcPort;
    return forward || reverse;
}

}  // namespace

int64_t dynamicLifetime(const Packet& packet) {
    constexpr int64_t kAckLifetime = 300;
    constexpr int64_t kClosingLifetime = 1;
    constexpr int64_t kUdpLifetime = 10;
    constexpr int64_t kShortLifetime = 5;
    switch (packet.flow.proto) {
        case kProtoTcp:
            return (packet.tcpFlags & (kTcpFin | kTcpRst)) != 0 ? kClosingLifetime : kAckLifetime;
        case kProtoUdp:
            return kUdpLifetime;
        default:
            return kShortLifetime;
    }
}

PacketMatcher::PacketMatcher(FirewallState& state, MatchContext context)
    : state_(state), context_(std::move(context)) {}

Verdict PacketMatcher::evaluate(const Packet& packet) {
    purgeExpired();
    stateLooked_ = false;
    skipBelow_ = 0;
    Verdict verdict;
    const uint32_t disabled = state_.header().disabledSets;
    for (RuleEntry& entry : state_.rules()) {
        const Rule& rule = entry.stored.rule;
        if (rule.number < skipBelow_ || (disabled & (1u << rule.set)) != 0) {
            continue;
        }
        if (runRule(entry, packet, verdict) == Step::Done) {
            return verdict;
        }
    }
    count(state_.header().defaultRule, packet);
    verdict.ruleNumber = kDefaultRuleNumber;
    verdict.action = "Accept";
    return verdict;
}

PacketMatcher::Step PacketMatcher::runRule(RuleEntry& entry, const Packet& packet,
                                           Verdict& verdict) {
    const Rule& rule = entry.stored.rule;
    if (rule.hasProbability && !(context_.random() < static_cast<uint32_t>(rule.probability))) {
        return Step::NextRule;
    }
    if (rule.keepsState()) {
        DynamicEntry* found = firstStateLookup(packet);
        if (found != nullptr) {
            return jumpToState(*found, packet, verdict);
        }
    }
    for (const Match& match : rule.matches) {
        if (conditionHolds(match, entry.key, packet) == match.negated) {
            return Step::NextRule;
        }
    }
    return runAction(entry, packet, verdict);
}

// A packet of a known flow takes the action of the rule that created the entry.
PacketMatcher::Step PacketMatcher::jumpToState(DynamicEntry& found, const Packet& packet,
                                               Verdict& verdict) {
    RuleEntry* parent = state_.findByKey(found.ruleKey);
    if (parent == nullptr) {
        return Step::NextRule;
    }
    count(found.counters, packet);
    found.expires = context_.now + dynamicLifetime(packet);
    verdict.fromState = true;
    return runAction(*parent, packet, verdict);
}

PacketMatcher::Step PacketMatcher::runAction(RuleEntry& entry, const Packet& packet,
                                             Verdict& verdict) {
    const Rule& rule = entry.stored.rule;
    if (rule.log) {
        logPacket(entry, packet, verdict);
    }
    if (rule.action.kind == ActionKind::CheckState) {
        DynamicEntry* found = firstStateLookup(packet);
        return found != nullptr ? jumpToState(*found, packet, verdict) : Step::NextRule;
    }
    count(entry.stored.counters, packet);
    if (rule.action.kind == ActionKind::Count) {
        return Step::Continue;
    }
    if (rule.action.kind == ActionKind::Skipto) {
        skipBelow_ = std::max(skipBelow_, rule.action.argument);
        return Step::Continue;
    }
    verdict.ruleNumber = rule.number;
    verdict.action = actionLogWord(rule.action);
    return Step::Done;
}

bool PacketMatcher::conditionHolds(const Match& match, uint64_t ruleKey, const Packet& packet) {
    const FlowId& flow = packet.flow;
    const std::vector<uint32_t>& me = context_.localAddresses;
    switch (match.kind) {
        case MatchKind::Proto:
            return flow.proto == match.value;
        case MatchKind::SrcAddr:
            return addressListMatches(match.addresses, flow.srcAddress);
        case MatchKind::DstAddr:
            return addressListMatches(match.addresses, flow.dstAddress);
        case MatchKind::SrcMe:
            return std::find(me.begin(), me.end(), flow.srcAddress) != me.end();
        case MatchKind::DstMe:
            return std::find(me.begin(), me.end(), flow.dstAddress) != me.end();
        case MatchKind::SrcPort:
            return hasPorts(packet) && portListMatches(match.ports, flow.srcPort);
        case MatchKind::DstPort:
            return hasPorts(packet) && portListMatches(match.ports, flow.dstPort);
        case MatchKind::IcmpTypes:
            return flow.proto == kProtoIcmp && packet.icmpType < 32 &&
                   (match.value & (1u << packet.icmpType)) != 0;
        case MatchKind::TcpFlags:
            return flow.proto == kProtoTcp && flagsMatch(match.value, packet.tcpFlags);
        case MatchKind::TcpOptions:
            return flow.proto == kProtoTcp && flagsMatch(match.value, packet.tcpOptions);
        case MatchKind::IpOptions:
            return flagsMatch(match.value, packet.ipOptions);
        case MatchKind::IpTos:
            return flagsMatch(match.value, packet.ipTos);
        case MatchKind::Established:
            return flow.proto == kProtoTcp && (packet.tcpFlags & (kTcpRst | kTcpAck)) != 0;
        case MatchKind::Mac:
            // MAC addresses are only known to layer-2 packets.
            return packet.layer2 &&
                   macMatches(match.mac.dstAddress, match.mac.dstMask, packet.dstMac) &&
                   macMatches(match.mac.srcAddress, match.mac.srcMask, packet.srcMac);
        case MatchKind::In:
            return !packet.outbound;
        case MatchKind::Via:
            return interfaceMatches(match.iface, packet);
        case MatchKind::Recv:
            return !packet.outbound && interfaceMatches(match.iface, packet);
        case MatchKind::Xmit:
            return packet.outbound && interfaceMatches(match.iface, packet);
        case MatchKind::KeepState:
            keepState(ruleKey, packet);
            return true;
    }
    return false;
}

// The kernel consults the dynamic table once per packet, at the first keep-state or
// check-state rule it reaches; later ones behave as if nothing was found.
DynamicEntry* PacketMatcher::firstStateLookup(const Packet& packet) {
    if (stateLooked_) {
        return nullptr;
    }
    stateLooked_ = true;
    return lookupState(packet);
}

DynamicEntry* PacketMatcher::lookupState(const Packet& packet) {
    for (DynamicEntry& entry : state_.dynamic()) {
        if (sameFlowEitherWay(entry.flow, packet.flow)) {
            return &entry;
        }
    }
    return nullptr;
}

void PacketMatcher::keepState(uint64_t ruleKey, const Packet& packet) {
    if (lookupState(packet) != nullptr) {
        return;
    }
    DynamicEntry entry;
    entry.ruleKey = ruleKey;
    entry.flow = packet.flow;
    entry.expires = context_.now + kNewStateLifetime;
    state_.dynamic().push_back(entry);
}

// A rule with "logamount N" logs N packets, announces that its limit is reached and
// then stays silent until its counters are reset; 0 means no limit.
void PacketMatcher::logPacket(RuleEntry& entry, const Packet& packet, Verdict& verdict) {
    if (!state_.header().verbose) {
        return;
    }
    const Rule& rule = entry.stored.rule;
    uint32_t& left = entry.stored.logLeft;
    if (rule.logAmount != 0 && left == 0) {
        return;
    }
    verdict.log.push_back(
        {kLogPriorityInfo, packetLogText(rule.number, actionLogWord(rule.action), packet)});
    if (rule.logAmount != 0 && --left == 0) {
        verdict.log.push_back({kLogPriorityNotice, limitLogText(rule.logAmount, rule.number)});
    }
}

void PacketMatcher::count(Counters& counters, const Packet& packet) const {
    counters.packets += 1;
    counters.bytes += packet.length;
}

void PacketMatcher::purgeExpired() {
    auto& dynamic = state_.dynamic();
    dynamic.erase(
        std::remove_if(dynamic.begin(), dynamic.end(),
                       [this](const DynamicEntry& entry) { return entry.expires <= context_.now; }),
        dynamic.end());
}

}  // namespace ipfwsim
