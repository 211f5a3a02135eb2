// What the plug-in's and the daemon's codes mean, in words a person reads. Shared by
// qvfwd (its start-up failure line) and qvfwctl (every failing command).
#pragma once

#include <stdint.h>

#include <string>

namespace qvctl {

struct CodeMeaning {
    int32_t code;
    const char* meaning;
};

constexpr CodeMeaning kCodeMeanings[] = {
    {13, "permission denied: only root or the daemon's own user may use qvfwd"},
    {20001, "the response could not be serialized"},
    {20002, "invalid argument"},
    {20006, "out of memory for the response"},
    {20010, "the request was not a complete message"},
    {20013, "the firewall manager failed to initialise (is QvFw.conf.plist in place?)"},
    {20016, "a command line could not be run"},
    {20701, "rule not found"},
    {20702, "MAC address missing or invalid"},
    {20703, "no rule number could be allocated"},
    {20704, "ipfw refused the rule"},
    {20705, "action without a keyword"},
    {20706, "host or interface name unsafe for the shell"},
    {20707, "two entries of the rule list share one order"},
};

inline const char* CodeMeaningOf(int32_t code) {
    for (const CodeMeaning& entry : kCodeMeanings) {
        if (entry.code == code) {
            return entry.meaning;
        }
    }
    return "unknown error";
}

// "error 20704: ipfw refused the rule"
inline std::string DescribeCode(int32_t code) {
    return "error " + std::to_string(code) + ": " + CodeMeaningOf(code);
}

}  // namespace qvctl
