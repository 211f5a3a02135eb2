#pragma once

// In-memory stand-ins for the simulator's seams: names, state bytes, clock, console.

#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ipfwsim/Console.h"
#include "ipfwsim/Environment.h"
#include "ipfwsim/NameService.h"
#include "ipfwsim/Simulator.h"
#include "ipfwsim/StateFile.h"
#include "ipfwsim/StateStore.h"

namespace simtest {

// A command line split at blanks, as a shell would pass it to ipfw.
inline std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> result;
    for (std::string word; in >> word;) {
        result.push_back(word);
    }
    return result;
}

using namespace ipfwsim;

class FakeNames : public NameService {
public:
    std::map<std::string, uint32_t> hosts{{"localhost", 0x7f000001}, {"gw", 0x0a000001}};

    bool resolveHost(const std::string& name, uint32_t& address) const override {
        auto found = hosts.find(name);
        if (found == hosts.end()) {
            return false;
        }
        address = found->second;
        return true;
    }
    bool serviceByName(const std::string& name, const std::string& protocol,
                       uint16_t& port) const override {
        lastServiceProtocol = protocol;
        const std::map<std::string, uint16_t> services{{"http", 80}, {"ssh", 22}, {"domain", 53}};
        auto found = services.find(name);
        if (found == services.end()) {
            return false;
        }
        port = found->second;
        return true;
    }
    bool protocolByName(const std::string& name, uint8_t& number) const override {
        for (const auto& entry : protocols()) {
            if (entry.second == name) {
                number = entry.first;
                return true;
            }
        }
        return false;
    }
    std::string protocolName(uint8_t number) const override {
        auto found = protocols().find(number);
        return found == protocols().end() ? "" : found->second;
    }
    mutable std::string lastServiceProtocol;

private:
    static const std::map<uint8_t, std::string>& protocols() {
        static const std::map<uint8_t, std::string> table{
            {0, "ip"}, {1, "icmp"}, {6, "tcp"}, {17, "udp"}, {47, "gre"}};
        return table;
    }
};

class MemoryStore : public StateStore {
public:
    std::string bytes = StateFile::format(StateHeader{}, {});
    int replaces = 0;
    bool refuseReplace = false;  // a disk that takes appends but no new file

    Status read(std::string_view& content) override {
        content = bytes;
        return Status::success();
    }
    Status append(std::string_view text) override {
        bytes += text;
        return Status::success();
    }
    Status overwrite(size_t offset, std::string_view text) override {
        bytes.replace(offset, text.size(), text);
        return Status::success();
    }
    Status replace(std::string_view content) override {
        if (refuseReplace) {
            return Status::failure(kExitIoErr, "No space left on device");
        }
        ++replaces;
        bytes = std::string(content);
        return Status::success();
    }
};

class FakeEnvironment : public Environment {
public:
    FakeNames fakeNames;
    int64_t clock = 1700000000;  // Tue Nov 14 22:13:20 2023 UTC
    std::vector<uint32_t> me{0x0a000002};
    uint64_t seed = 42;
    std::string syslogConf = "!ipfw\n*.*\t/var/log/ipfw.log\n!*\n";
    std::map<std::string, std::string> files;

    // Log time stamps are local time; the tests read them in UTC.
    FakeEnvironment() {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    const NameService& names() const override { return fakeNames; }
    int64_t now() const override { return clock; }
    std::vector<uint32_t> localAddresses() const override { return me; }
    std::string hostName() const override { return "myhost"; }
    uint64_t randomSeed() const override { return seed; }
    bool stdinIsTerminal() const override { return false; }
    std::string syslogConfiguration() const override { return syslogConf; }
    Status appendToFile(const std::string& path, std::string_view text) override {
        files[path] += text;
        return Status::success();
    }
};

class FakeConsole : public Console {
public:
    std::string output;
    std::string errors;

    void out(std::string_view text) override { output += text; }
    void err(std::string_view text) override { errors += text; }
    void flushOut() override {}
    bool readLine(std::string&) override { return false; }
};

// Splits at blanks as /bin/sh would (no quoting needed by the tests).
inline std::vector<std::string> splitAtBlanks(const std::string& text) {
    return words(text);
}

// Runs commands against one in-memory rule state, like a shell session would.
struct Session {
    FakeEnvironment env;
    MemoryStore store;
    FakeConsole console;
    int exitCode = 0;

    std::string run(const std::string& commandLine) {
        console.output.clear();
        console.errors.clear();
        exitCode = Simulator(env, store, console).run(splitAtBlanks(commandLine));
        return console.output;
    }
    // Runs "-q add RULE" for each rule, in order.
    void add(std::initializer_list<const char*> rules) {
        for (const char* rule : rules) {
            run(std::string("-q add ") + rule);
        }
    }
};

}  // namespace simtest
