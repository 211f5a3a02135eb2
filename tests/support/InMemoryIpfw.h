// ipfw for the plug-in's core without a process: the simulator's core behind the command
// runner, on a rule state in memory, so that rule sets and the manager are tested with
// plain unit tests and real ipfw answers. An ipfw command line is read as /bin/sh reads
// the plug-in's: words, the "\!" and "\*" escapes and a closing " 2>/dev/stdout" that
// joins the error stream to the output; any other shell syntax is a fault of the plug-in
// and aborts the process (tests and fuzzers alike). sysctl, killall and touch succeed and
// print nothing. Every line run is kept, in order.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CommandRunner.h"
#include "ShellInert.h"
#include "SimFakes.h"

namespace qvtest {

class InMemoryIpfw : public qor::vela::CommandRunner {
public:
    // An answer in place of ipfw's, or nullopt to let ipfw answer; for faults ipfw itself
    // cannot show. A failed result is a runner that could not run the line.
    using Override =
        std::function<std::optional<qor::vela::Result<std::string>>(const std::string&)>;

    qor::vela::Result<std::string> Run(const std::string& command, unsigned int) override {
        // A real command takes its time: other threads get their turn between commands.
        std::this_thread::sleep_for(std::chrono::microseconds(20));
        std::lock_guard<std::mutex> lock(m_mutex);
        m_commands.push_back(command);
        if (command.rfind("ipfw ", 0) == 0 &&
            qvfuzz::FirstShellActiveCharInCommand(command) != std::string::npos) {
            std::fprintf(stderr, "a command line the shell would act on: %s\n", command.c_str());
            std::abort();
        }
        if (m_override) {
            if (auto answer = m_override(command)) {
                return *answer;
            }
        }
        return qor::vela::Result<std::string>::Success(RunLocked(command));
    }

    void override(Override answer) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_override = std::move(answer);
    }

    // What `ipfw ARGUMENTS` prints, errors included, as a person at the console sees it.
    std::string ipfw(const std::string& arguments) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return RunLocked("ipfw " + arguments + " 2>/dev/stdout");
    }

    std::vector<std::string> commands() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_commands;
    }

private:
    // Words as the shell leaves them: blanks separate, a backslash keeps the next byte.
    static std::vector<std::string> Words(const std::string& line) {
        std::vector<std::string> words;
        std::string word;
        for (size_t i = 0; i <= line.size(); ++i) {
            if (i == line.size() || line[i] == ' ') {
                if (!word.empty()) {
                    words.push_back(word);
                }
                word.clear();
                continue;
            }
            if (line[i] == '\\' && i + 1 < line.size()) {
                ++i;
            }
            word += line[i];
        }
        return words;
    }

    std::string RunLocked(std::string line) {
        const std::string joinErrors = " 2>/dev/stdout";
        const bool joined =
            line.size() >= joinErrors.size() &&
            line.compare(line.size() - joinErrors.size(), joinErrors.size(), joinErrors) == 0;
        if (joined) {
            line.resize(line.size() - joinErrors.size());
        }
        std::vector<std::string> words = Words(line);
        if (words.empty() || words[0] != "ipfw") {
            return "";  // sysctl, killall, touch
        }
        words.erase(words.begin());
        simtest::FakeConsole console;
        ipfwsim::Simulator(m_environment, m_store, console).run(words);
        // ipfw's errors go out at once, its listing when it exits.
        return joined ? console.errors + console.output : console.output;
    }

    mutable std::mutex m_mutex;
    simtest::FakeEnvironment m_environment;
    simtest::MemoryStore m_store;
    Override m_override;
    std::vector<std::string> m_commands;
};

}  // namespace qvtest
