#include "ipfwnft/RuleKey.h"

#include <algorithm>

#include "ipfwsim/Inet.h"

namespace ipfwnft {
namespace {

using ipfwsim::Match;
using ipfwsim::MatchKind;
using ipfwsim::Rule;

// A rule's lists multiply into elements; past this many it stays a line.
constexpr size_t kMostKeysPerRule = 256;
constexpr uint32_t kHostMask = 0xffffffff;
constexpr uint32_t kHighestRejectCode = 127;

struct FieldText {
    KeyField field;
    const char* expression;
};
constexpr FieldText kFields[kKeyFields] = {{kKeyProto, "meta l4proto"},
                                           {kKeySrcAddr, "ip saddr"},
                                           {kKeyDstAddr, "ip daddr"},
                                           {kKeySrcPort, "th sport"},
                                           {kKeyDstPort, "th dport"}};

size_t fieldIndex(KeyField field) {
    for (size_t i = 0; i < kKeyFields; ++i) {
        if (kFields[i].field == field) {
            return i;
        }
    }
    return 0;
}

bool actionKeyable(const Rule& rule) {
    switch (rule.action.kind) {
        case ipfwsim::ActionKind::Allow:
        case ipfwsim::ActionKind::Deny:
        case ipfwsim::ActionKind::Count:
            return true;
        case ipfwsim::ActionKind::Reject:
            return rule.action.argument == ipfwsim::kRejectWithReset ||
                   rule.action.argument <= kHighestRejectCode;
        default:
            return false;
    }
}

// The values one field may take, from one match; false when they are not exact.
bool matchValues(const Match& match, std::vector<uint32_t>& values) {
    values.clear();
    if (match.kind == MatchKind::SrcAddr || match.kind == MatchKind::DstAddr) {
        for (const ipfwsim::AddressMask& element : match.addresses) {
            if (element.mask != kHostMask) {
                return false;
            }
            values.push_back(element.address);
        }
    } else {
        for (const ipfwsim::PortRange& range : match.ports) {
            if (range.low != range.high) {
                return false;
            }
            values.push_back(range.low);
        }
    }
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    return !values.empty();
}

KeyField fieldOf(MatchKind kind) {
    switch (kind) {
        case MatchKind::SrcAddr:
            return kKeySrcAddr;
        case MatchKind::DstAddr:
            return kKeyDstAddr;
        case MatchKind::SrcPort:
            return kKeySrcPort;
        default:
            return kKeyDstPort;
    }
}

// Narrows `allowed` (empty: not narrowed yet) to `values`; false when nothing is left.
void narrow(std::vector<uint32_t>& allowed, bool& named, const std::vector<uint32_t>& values) {
    if (!named) {
        allowed = values;
        named = true;
        return;
    }
    std::vector<uint32_t> both;
    std::set_intersection(allowed.begin(), allowed.end(), values.begin(), values.end(),
                          std::back_inserter(both));
    allowed = both;
}

}  // namespace

bool lookupKeys(const Rule& rule, Pass pass, RuleKeys& keys) {
    keys = RuleKeys();
    if (rule.hasProbability || !actionKeyable(rule)) {
        return false;
    }
    std::vector<uint32_t> allowed[kKeyFields];
    bool named[kKeyFields] = {};
    bool possible = true;
    std::vector<uint32_t> values;
    for (const Match& match : rule.matches) {
        if (match.kind == MatchKind::In) {
            possible &= isInbound(pass) != match.negated;
            continue;
        }
        if (match.negated) {
            return false;
        }
        if (match.kind == MatchKind::Proto) {
            values = {match.value};
        } else if (match.kind == MatchKind::SrcAddr || match.kind == MatchKind::DstAddr ||
                   match.kind == MatchKind::SrcPort || match.kind == MatchKind::DstPort) {
            if (!matchValues(match, values)) {
                return false;
            }
        } else {
            return false;
        }
        const size_t index = match.kind == MatchKind::Proto ? 0 : fieldIndex(fieldOf(match.kind));
        narrow(allowed[index], named[index], values);
    }
    // ipfw tests ports of TCP and UDP only.
    if (named[3] || named[4]) {
        narrow(allowed[0], named[0], {ipfwsim::kProtoTcp, ipfwsim::kProtoUdp});
    }
    size_t count = 1;
    for (size_t i = 0; i < kKeyFields; ++i) {
        if (named[i]) {
            keys.shape |= kFields[i].field;
            count *= allowed[i].size();
        }
    }
    // A rule that names nothing a key holds is one line without a test: cheaper so.
    if (keys.shape == 0 || count > kMostKeysPerRule) {
        keys = RuleKeys();
        return false;
    }
    if (!possible || count == 0) {
        return true;
    }
    keys.keys.push_back(KeyValues{});
    for (size_t i = 0; i < kKeyFields; ++i) {
        if (!named[i]) {
            continue;
        }
        std::vector<KeyValues> grown;
        for (const KeyValues& partial : keys.keys) {
            for (uint32_t value : allowed[i]) {
                KeyValues key = partial;
                key[i] = value;
                grown.push_back(key);
            }
        }
        keys.keys = std::move(grown);
    }
    return true;
}

bool surelyNoKey(std::string_view storedLine) {
    // The words a key can hold; "in" also negated, as "out". A handful, compared in place:
    // this runs for every rule of a block that a change touches.
    static constexpr std::string_view kKeyWords[] = {"proto",    "src", "dst", "src-port",
                                                     "dst-port", "in",  "!in"};
    const auto isKeyWord = [](std::string_view word) {
        return std::find(std::begin(kKeyWords), std::end(kKeyWords), word) != std::end(kKeyWords);
    };
    size_t at = 0;
    for (int field = 0; field < 5 && at != std::string_view::npos; ++field) {
        at = storedLine.find(' ', at == 0 ? 0 : at + 1);
    }
    while (at != std::string_view::npos) {
        const size_t start = at + 1;
        at = storedLine.find(' ', start);
        std::string_view token = storedLine.substr(
            start, at == std::string_view::npos ? std::string_view::npos : at - start);
        if (token.substr(0, 7) == "action=") {
            const std::string_view action = token.substr(7);
            if (action == "check-state" || action.substr(0, 7) == "skipto:") {
                return true;
            }
            continue;
        }
        if (token.substr(0, 5) == "prob=") {
            return true;
        }
        if (token.substr(0, 4) == "log=" || token == "options-only" || token.empty()) {
            continue;
        }
        if (!isKeyWord(token.substr(0, token.find(':')))) {
            return true;
        }
    }
    return false;
}

std::string keyExpression(uint8_t shape) {
    std::string text;
    for (const FieldText& field : kFields) {
        if ((shape & field.field) != 0) {
            text += (text.empty() ? "" : " . ") + std::string(field.expression);
        }
    }
    return text;
}

std::string keyText(uint8_t shape, const KeyValues& key) {
    std::string text;
    for (size_t i = 0; i < kKeyFields; ++i) {
        if ((shape & kFields[i].field) == 0) {
            continue;
        }
        const bool address = kFields[i].field == kKeySrcAddr || kFields[i].field == kKeyDstAddr;
        text += (text.empty() ? "" : " . ") +
                (address ? ipfwsim::dottedQuad(key[i]) : std::to_string(key[i]));
    }
    return text;
}

namespace {

KeyValues project(const KeyValues& key, uint8_t fields) {
    KeyValues kept{};
    for (size_t i = 0; i < kKeyFields; ++i) {
        if ((fields & kFields[i].field) != 0) {
            kept[i] = key[i];
        }
    }
    return kept;
}

}  // namespace

std::set<KeyValues>& KeyIndex::projected(const Projection& projection) {
    const auto found = projections_.find(projection);
    if (found != projections_.end()) {
        return found->second;
    }
    std::set<KeyValues>& made = projections_[projection];
    for (const KeyValues& key : byShape_[projection.first]) {
        made.insert(project(key, projection.second));
    }
    return made;
}

bool KeyIndex::meets(const RuleKeys& rule) {
    if (rule.keys.empty()) {
        return false;
    }
    std::vector<uint8_t> shapes;
    for (const auto& [shape, keys] : byShape_) {
        if (!keys.empty()) {
            shapes.push_back(shape);
        }
    }
    for (uint8_t shape : shapes) {
        const uint8_t common = static_cast<uint8_t>(shape & rule.shape);
        const std::set<KeyValues>& seen = projected({shape, common});
        for (const KeyValues& key : rule.keys) {
            if (seen.count(project(key, common)) != 0) {
                return true;
            }
        }
    }
    return false;
}

void KeyIndex::add(const RuleKeys& rule) {
    if (rule.keys.empty()) {
        return;
    }
    std::vector<KeyValues>& keys = byShape_[rule.shape];
    keys.insert(keys.end(), rule.keys.begin(), rule.keys.end());
    for (auto& [projection, seen] : projections_) {
        if (projection.first == rule.shape) {
            for (const KeyValues& key : rule.keys) {
                seen.insert(project(key, projection.second));
            }
        }
    }
}

}  // namespace ipfwnft
