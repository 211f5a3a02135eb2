// The daemon's status record (reply of qvctl::kStatus): one "key=value" line per field,
// so that old and new tools can read each other's records; unknown keys are skipped.
#pragma once

#include <stdint.h>

#include <cstdlib>
#include <sstream>
#include <string>

namespace qvctl {

struct DaemonStatus {
    int64_t pid = 0;
    int64_t uptimeSeconds = 0;
    int64_t pluginId = 0;
    std::string pluginPath;
    std::string controlSocket;
    std::string serviceSocket;
    int64_t eventsFromService = 0;
    int64_t eventsFromCallback = 0;
    int64_t eventsKept = 0;
    int64_t streamClients = 0;
    int64_t loggedPacketsLost = 0;
    // "answers", or why the ipfw that the plug-in drives does not.
    std::string ipfw;
    // The stored options, as the configuration file holds them.
    std::string configPath;
    int64_t normalSet = 0;
    int64_t exceptionSet = 0;
    std::string fwLogPath;
    std::string syslogConf;
};

// The fields of the record, in the order they are written, as one table for both ways.
struct StatusField {
    const char* key;
    int64_t DaemonStatus::*number;
    std::string DaemonStatus::*text;
};

inline const StatusField* StatusFields(size_t* count) {
    static const StatusField fields[] = {
        {"pid", &DaemonStatus::pid, nullptr},
        {"uptime_seconds", &DaemonStatus::uptimeSeconds, nullptr},
        {"plugin_id", &DaemonStatus::pluginId, nullptr},
        {"plugin_path", nullptr, &DaemonStatus::pluginPath},
        {"control_socket", nullptr, &DaemonStatus::controlSocket},
        {"service_socket", nullptr, &DaemonStatus::serviceSocket},
        {"events_from_service", &DaemonStatus::eventsFromService, nullptr},
        {"events_from_callback", &DaemonStatus::eventsFromCallback, nullptr},
        {"events_kept", &DaemonStatus::eventsKept, nullptr},
        {"stream_clients", &DaemonStatus::streamClients, nullptr},
        {"logged_packets_lost", &DaemonStatus::loggedPacketsLost, nullptr},
        {"ipfw", nullptr, &DaemonStatus::ipfw},
        {"config_path", nullptr, &DaemonStatus::configPath},
        {"normal_set", &DaemonStatus::normalSet, nullptr},
        {"exception_set", &DaemonStatus::exceptionSet, nullptr},
        {"fw_log_path", nullptr, &DaemonStatus::fwLogPath},
        {"syslog_conf", nullptr, &DaemonStatus::syslogConf},
    };
    *count = sizeof fields / sizeof fields[0];
    return fields;
}

inline std::string FormatStatus(const DaemonStatus& status) {
    size_t count = 0;
    const StatusField* fields = StatusFields(&count);
    std::string out;
    for (size_t i = 0; i < count; ++i) {
        out += fields[i].key;
        out += '=';
        out += fields[i].number != nullptr ? std::to_string(status.*fields[i].number)
                                           : status.*fields[i].text;
        out += '\n';
    }
    return out;
}

inline void SetStatusField(const std::string& key, const std::string& value, DaemonStatus* status) {
    size_t count = 0;
    const StatusField* fields = StatusFields(&count);
    for (size_t i = 0; i < count; ++i) {
        if (key != fields[i].key) {
            continue;
        }
        if (fields[i].number != nullptr) {
            status->*fields[i].number = std::strtoll(value.c_str(), nullptr, 10);
        } else {
            status->*fields[i].text = value;
        }
    }
}

inline DaemonStatus ParseStatus(const std::string& text) {
    DaemonStatus status;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        size_t equals = line.find('=');
        if (equals != std::string::npos) {
            SetStatusField(line.substr(0, equals), line.substr(equals + 1), &status);
        }
    }
    return status;
}

}  // namespace qvctl
