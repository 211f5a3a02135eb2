#include "RuleReader.h"

#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <locale>
#include <sstream>

#include "AddressWords.h"
#include "CtlArguments.h"
#include "PortWords.h"
#include "RuleKeywords.h"

namespace qvctl {

namespace {

using qor::vela::ActionEnum;
using qor::vela::FwRule;

constexpr unsigned int kHighestUnreachCode = 255;

// Words ipfw itself takes for the same actions.
struct ActionSynonym {
    const char* word;
    ActionEnum action;
};
const ActionSynonym kActionSynonyms[] = {
    {"accept", qor::vela::ACTION_ALLOW},
    {"pass", qor::vela::ACTION_ALLOW},
    {"permit", qor::vela::ACTION_ALLOW},
    {"drop", qor::vela::ACTION_DENY},
};

bool FindAction(const std::string& word, ActionEnum* action) {
    for (const ActionSynonym& synonym : kActionSynonyms) {
        if (word == synonym.word) {
            *action = synonym.action;
            return true;
        }
    }
    return FindKeyword(word, action);
}

// A decimal fraction as the generator writes one ("0.5", "1", "1e-05"); hexadecimal,
// infinities and NaN are not probabilities.
bool ReadProbabilityValue(const std::string& text, double* probability) {
    if (text.empty() || text.find_first_not_of("0123456789.eE+-") != std::string::npos ||
        !(isdigit(static_cast<unsigned char>(text[0])) || text[0] == '.')) {
        return false;
    }
    char* end = nullptr;
    double value = strtod(text.c_str(), &end);
    if (*end != '\0' || !isfinite(value) || value < 0 || value > 1) {
        return false;
    }
    // The rule text keeps six significant digits: more would be rounded away unseen.
    std::ostringstream written;
    written.imbue(std::locale::classic());
    written << value;
    if (strtod(written.str().c_str(), nullptr) != value) {
        return false;
    }
    *probability = value;
    return true;
}

// One entry of a flag list: [!]KEYWORD; the generator writes the "!" as "\!" for the shell.
template <typename Enum, typename Entry>
bool ReadFlagList(const std::string& word, google::protobuf::RepeatedPtrField<Entry>* list,
                  std::string* expected) {
    size_t start = 0;
    while (true) {
        size_t comma = word.find(',', start);
        std::string entry = word.substr(start, comma - start);
        bool exclude = false;
        for (const char* mark : {"\\!", "!"}) {
            if (entry.compare(0, strlen(mark), mark) == 0) {
                entry = entry.substr(strlen(mark));
                exclude = true;
                break;
            }
        }
        Enum value;
        if (!FindKeyword(entry, &value)) {
            *expected =
                "[!]" + KeywordList<Enum>("|") + " joined by commas, instead of '" + entry + "'";
            return false;
        }
        Entry* flag = list->Add();
        flag->set_value(value);
        if (exclude) {
            flag->set_exclude(true);
        }
        if (comma == std::string::npos) {
            return true;
        }
        start = comma + 1;
    }
}

class RuleReader {
public:
    RuleReader(const std::vector<std::string>& words, FwRule* rule)
        : m_words(words), m_rule(rule) {}

    ReadResult Read() {
        if (ReadProbability() && ReadAction()) {
            ReadOptions();
        }
        return m_result;
    }

    // The option words in the order the generator writes them.
    static std::vector<std::string> OptionNames();

private:
    using OptionReader = bool (RuleReader::*)(const std::string& name);
    struct Option {
        const char* name;
        const char* field;  // options that set the same field exclude each other
        OptionReader read;
    };
    static const Option kOptions[];

    bool AtEnd() const { return m_next >= m_words.size(); }
    bool NextIs(const char* word) const { return !AtEnd() && m_words[m_next] == word; }

    bool Refuse(size_t index, const std::string& expected) {
        m_result.ok = false;
        m_result.position = index + 1;
        m_result.word = index < m_words.size() ? m_words[index] : "";
        m_result.expected = expected;
        return false;
    }
    bool RefuseNext(const std::string& expected) { return Refuse(m_next, expected); }
    bool RefuseTaken(const std::string& expected) { return Refuse(m_next - 1, expected); }

    // The next word, or a refusal naming what should have come.
    bool Take(const std::string& expected, std::string* word) {
        if (AtEnd()) {
            return RefuseNext(expected);
        }
        *word = m_words[m_next++];
        return true;
    }

    bool ReadProbability() {
        if (!NextIs("prob")) {
            return true;
        }
        ++m_next;
        std::string word;
        double probability = 0;
        if (!Take("a probability from 0 to 1", &word)) {
            return false;
        }
        if (!ReadProbabilityValue(word, &probability)) {
            return RefuseTaken("a probability from 0 to 1 of at most six significant digits");
        }
        m_rule->set_probability(probability);
        return true;
    }

    bool ReadAction() {
        const std::string expected =
            "an action (" + KeywordList<ActionEnum>() + ") or prob P before one";
        std::string word;
        ActionEnum action;
        if (!Take(expected, &word)) {
            return false;
        }
        if (!FindAction(word, &action)) {
            return RefuseTaken(expected);
        }
        m_rule->set_action(action);
        switch (action) {
            case qor::vela::ACTION_CHECK_STATE:
                return AtEnd() || RefuseNext("nothing more: check-state takes no options");
            case qor::vela::ACTION_UNREACH:
                return ReadUnreachCode() && ReadLog();
            case qor::vela::ACTION_ALLOW:
                return !NextIs("log") || RefuseNext("an option: allowed packets are never logged");
            default:
                return ReadLog();
        }
    }

    bool ReadUnreachCode() {
        const char* expected = "an ICMP unreachable code from 0 to 255 after unreach";
        std::string word;
        unsigned int code = 0;
        if (!Take(expected, &word)) {
            return false;
        }
        if (!ParseUnsigned(word, &code) || code > kHighestUnreachCode) {
            return RefuseTaken(expected);
        }
        m_rule->set_unreach_code(static_cast<int32_t>(code));
        return true;
    }

    // deny, reset and unreach always log without limit; the words may say so.
    bool ReadLog() {
        if (!NextIs("log")) {
            return true;
        }
        ++m_next;
        if (!NextIs("logamount")) {
            return true;
        }
        ++m_next;
        std::string word;
        const char* expected = "0 after logamount (these rules log every packet)";
        if (!Take(expected, &word)) {
            return false;
        }
        return word == "0" || RefuseTaken(expected);
    }

    bool ReadOptions();

    static std::string Join(const std::vector<std::string>& words) {
        std::string text;
        for (const std::string& word : words) {
            text += (text.empty() ? "" : ", ") + word;
        }
        return text;
    }

    // The value word after option `name`, read by `read`; `expected` names it.
    template <typename Reader>
    bool TakeValue(const std::string& name, const std::string& expected, Reader read) {
        std::string word;
        std::string why = expected;
        if (!Take(expected + " after " + name, &word)) {
            return false;
        }
        return read(word, &why) || RefuseTaken(why);
    }

    bool ReadProto(const std::string& name) {
        const std::string expected =
            "a protocol (all, " + KeywordList<qor::vela::ProtoValueEnum>() + ")";
        return TakeValue(name, expected, [this](const std::string& word, std::string*) {
            qor::vela::ProtoValueEnum value;
            qor::vela::FwProtocol* protocol = m_rule->mutable_protocol();
            if (word == "all") {
                protocol->set_type(qor::vela::PROTO_ALL);
                return true;
            }
            if (!FindKeyword(word, &value)) {
                return false;
            }
            protocol->set_type(qor::vela::PROTO_SPECIFIED);
            protocol->set_protocol(value);
            return true;
        });
    }

    bool ReadNotProto(const std::string&) {
        std::string word;
        if (!Take("proto after not", &word)) {
            return false;
        }
        if (word != "proto") {
            return RefuseTaken("proto after not: only a protocol can be negated");
        }
        if (NextIs("all")) {
            return RefuseNext("a protocol other than all after not proto");
        }
        m_rule->mutable_protocol()->set_exclude(true);
        return ReadProto("not proto");
    }

    bool ReadSrcIp(const std::string& name) { return ReadIp(name, m_rule->mutable_src_ip()); }
    bool ReadDstIp(const std::string& name) { return ReadIp(name, m_rule->mutable_dst_ip()); }
    bool ReadIp(const std::string& name, qor::vela::FwIp* ip) {
        return TakeValue(name, "me, any, or addresses and host names joined by commas",
                         [ip](const std::string& word, std::string* why) {
                             return ReadAddressList(word, ip, why);
                         });
    }

    bool ReadSrcPort(const std::string& name) { return ReadPort(name, m_rule->mutable_src_port()); }
    bool ReadDstPort(const std::string& name) { return ReadPort(name, m_rule->mutable_dst_port()); }
    bool ReadPort(const std::string& name, qor::vela::FwPort* port) {
        return TakeValue(name, "any, or ports and ranges joined by commas",
                         [port](const std::string& word, std::string* why) {
                             return ReadPortList(word, port, why);
                         });
    }

    bool ReadIcmp(const std::string& name) {
        return TakeValue(name, "ICMP type numbers joined by commas",
                         [this](const std::string& word, std::string* why) {
                             return ReadIcmpTypes(word, m_rule, why);
                         });
    }

    template <typename Enum, typename Entry>
    bool ReadFlags(const std::string& name, google::protobuf::RepeatedPtrField<Entry>* list) {
        return TakeValue(name, "[!]" + KeywordList<Enum>("|") + " joined by commas",
                         [list](const std::string& word, std::string* why) {
                             return ReadFlagList<Enum>(word, list, why);
                         });
    }
    bool ReadTcpFlags(const std::string& name) {
        return ReadFlags<qor::vela::TcpFlagEnum>(name, m_rule->mutable_tcp_flags());
    }
    bool ReadTcpOptions(const std::string& name) {
        return ReadFlags<qor::vela::TcpOptionEnum>(name, m_rule->mutable_tcp_opts());
    }
    bool ReadIpOptions(const std::string& name) {
        return ReadFlags<qor::vela::IpOptionEnum>(name, m_rule->mutable_ip_opts());
    }
    bool ReadIpTos(const std::string& name) {
        return ReadFlags<qor::vela::IpTosOptEnum>(name, m_rule->mutable_ip_tos());
    }

    // ipfw's order: destination first, then source.
    bool ReadMac(const std::string& name) {
        qor::vela::FwMac* mac = m_rule->mutable_mac_addr();
        const char* expected = "any or a MAC address";
        return TakeValue(name, std::string(expected) + " (destination)",
                         [mac](const std::string& word, std::string* why) {
                             return ReadMacAddress(word, mac->mutable_dst_mac(), why);
                         }) &&
               TakeValue(name + " DST", std::string(expected) + " (source)",
                         [mac](const std::string& word, std::string* why) {
                             return ReadMacAddress(word, mac->mutable_src_mac(), why);
                         });
    }

    bool ReadDirection(const std::string& name) {
        m_rule->set_direction(name == "in" ? qor::vela::DIRECT_IN : qor::vela::DIRECT_OUT);
        return true;
    }

    bool ReadVia(const std::string& name) {
        return TakeValue(name, "an interface name or address",
                         [this](const std::string& word, std::string* why) {
                             return ReadInterface(word, m_rule->mutable_via_interface(), why);
                         });
    }

    bool ReadKeepState(const std::string&) {
        m_rule->set_keep_state(true);
        return true;
    }

    const std::vector<std::string>& m_words;
    FwRule* m_rule;
    size_t m_next = 0;
    std::vector<std::string> m_seen;
    ReadResult m_result;
};

const RuleReader::Option RuleReader::kOptions[] = {
    {"proto", "proto", &RuleReader::ReadProto},
    {"not", "proto", &RuleReader::ReadNotProto},
    {"src-ip", "src-ip", &RuleReader::ReadSrcIp},
    {"dst-ip", "dst-ip", &RuleReader::ReadDstIp},
    {"src-port", "src-port", &RuleReader::ReadSrcPort},
    {"dst-port", "dst-port", &RuleReader::ReadDstPort},
    {"icmptypes", "icmptypes", &RuleReader::ReadIcmp},
    {"tcpflags", "tcpflags", &RuleReader::ReadTcpFlags},
    {"tcpoptions", "tcpoptions", &RuleReader::ReadTcpOptions},
    {"ipoptions", "ipoptions", &RuleReader::ReadIpOptions},
    {"iptos", "iptos", &RuleReader::ReadIpTos},
    {"mac", "mac", &RuleReader::ReadMac},
    {"in", "the direction", &RuleReader::ReadDirection},
    {"out", "the direction", &RuleReader::ReadDirection},
    {"via", "via", &RuleReader::ReadVia},
    {"keep-state", "keep-state", &RuleReader::ReadKeepState},
};

std::vector<std::string> RuleReader::OptionNames() {
    std::vector<std::string> names;
    for (const Option& option : kOptions) {
        names.push_back(option.name);
    }
    return names;
}

bool RuleReader::ReadOptions() {
    while (!AtEnd()) {
        const std::string word = m_words[m_next++];
        const Option* option = nullptr;
        for (const Option& candidate : kOptions) {
            if (word == candidate.name) {
                option = &candidate;
            }
        }
        if (option == nullptr) {
            return RefuseTaken("an option (" + Join(OptionNames()) + ")");
        }
        if (std::find(m_seen.begin(), m_seen.end(), option->field) != m_seen.end()) {
            return RefuseTaken(std::string("an option not given yet: ") + option->field +
                               " is already set");
        }
        m_seen.push_back(option->field);
        if (!(this->*option->read)(word)) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string ReadResult::Describe() const {
    if (ok) {
        return "";
    }
    if (word.empty()) {
        return (position <= 1 ? std::string("the rule is empty")
                              : "the rule ends after word " + std::to_string(position - 1)) +
               ": expected " + expected;
    }
    return "word " + std::to_string(position) + " '" + word + "': expected " + expected;
}

std::vector<std::string> SplitWords(const std::string& text) {
    std::vector<std::string> words;
    std::string word;
    for (char c : text) {
        if (isspace(static_cast<unsigned char>(c))) {
            if (!word.empty()) {
                words.push_back(word);
            }
            word.clear();
        } else {
            word += c;
        }
    }
    if (!word.empty()) {
        words.push_back(word);
    }
    return words;
}

ReadResult ReadRuleWords(const std::vector<std::string>& words, FwRule* rule) {
    rule->Clear();
    return RuleReader(words, rule).Read();
}

ReadResult ReadRuleText(const std::string& text, FwRule* rule) {
    return ReadRuleWords(SplitWords(text), rule);
}

bool StartsRuleWords(const std::string& word) {
    ActionEnum action;
    return word == "prob" || FindAction(word, &action);
}

std::vector<std::string> OptionWords() {
    return RuleReader::OptionNames();
}

std::vector<std::string> ActionWords() {
    std::vector<std::string> words;
    for (const Keyword<ActionEnum>& keyword : KeywordsOf<ActionEnum>()) {
        words.push_back(keyword.word);
    }
    return words;
}

}  // namespace qvctl
