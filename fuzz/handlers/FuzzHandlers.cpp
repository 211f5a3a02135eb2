// Every command handler of the table on arbitrary request bytes, the way a host calls
// them, down to the command lines the rule sets would run. The command runner is replaced
// by an in-memory ipfw (QvSystem defined here wins over libQvUtil's), so no shell ever
// runs; instead every command line must be free of anything the shell would act on.
//
// Input: byte 0 picks the table row (one past the end: the default handler), byte 1 holds
// fault switches, the rest is the request.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "FuzzWorld.h"
#include "Handler.h"
#include "QvDebugLog.h"
#include "QvErrors.h"
#include "QvGeneral.h"
#include "QvLog.h"
#include "QvPlugin.h"
#include "ShellInert.h"

namespace {

enum Switch : uint8_t {
    kNoOut = 1,         // out and outLen are null
    kNoIn = 2,          // in is null (length kept)
    kRunnerFails = 4,   // no command line can be run
    kIpfwRefuses = 8,   // ipfw prints an error for every add
    kNegativeLen = 16,  // the request length is negated
};

// The rules the in-memory ipfw holds: number -> set.
std::map<long, long> g_installed;
uint8_t g_switches = 0;

[[noreturn]] void Fail(const char* what, const char* command) {
    std::fprintf(stderr, "fuzz_handlers: %s: %s\n", what, command);
    std::abort();
}

void Answer(char* buffer, unsigned int size, const std::string& text) {
    if (buffer != nullptr && size > 0) {
        std::snprintf(buffer, size, "%s", text.c_str());
    }
}

// The rule-set manager's command lines, as ipfw would answer them.
void RunIpfw(const char* command, char* buffer, unsigned int size) {
    long number = 0;
    long set = 0;
    if (std::sscanf(command, "ipfw show %ld", &number) == 1) {
        Answer(buffer, size,
               g_installed.count(number) != 0
                   ? std::to_string(number) + " 0 0 allow ip from any to any\n"
                   : "ipfw: rule " + std::to_string(number) + " does not exist\n");
    } else if (std::sscanf(command, "ipfw -q add %ld set %ld", &number, &set) == 2) {
        if ((g_switches & kIpfwRefuses) != 0) {
            Answer(buffer, size, "ipfw: invalid rule\n");
        } else {
            g_installed[number] = set;
        }
    } else if (std::sscanf(command, "ipfw -q delete set %ld", &set) == 1) {
        for (auto it = g_installed.begin(); it != g_installed.end();) {
            it = it->second == set ? g_installed.erase(it) : std::next(it);
        }
    } else if (std::sscanf(command, "ipfw -q delete %ld", &number) == 1) {
        g_installed.erase(number);
    } else if (std::strcmp(command, "ipfw -q flush") == 0) {
        g_installed.clear();
    } else if (std::strncmp(command, "ipfw -q set ", 12) != 0) {
        Fail("unexpected command", command);
    }
}

void MakeManager() {
    const std::string dir = qvfuzz::MakeConfDir();
    const std::string config = qvfuzz::ConfigXml(dir);
    qvfuzz::WriteFile(dir + "/QvFw.conf.plist", config.data(), config.size());
    // Logging on at the top level, so that every format string meets the fuzzed values.
    g_debugLogContext = QvrnCreateDbgLog("QvFw", "/dev/null", 7);
    // Init's steps without the log redirection and the watcher thread.
    g_pFwMgr = new qor::vela::FwMgr;
    g_pFwMgr->m_pGenerator->InitFuncTab();
    if (g_pFwMgr->m_pConfig->Init() != 0) {
        Fail("configuration not loaded", dir.c_str());
    }
    g_pFwMgr->InitExceptionRuleMgr();
    g_pFwMgr->InitNormalRuleMgr();
}

// Argument and decoding failures write nothing; an answer is a buffer with its length.
void CheckResponse(int code, const void* out, int outLen) {
    const bool untouched = out == reinterpret_cast<void*>(1) && outLen == -1;
    if ((code == qor::vela::QV_ERR_INVALID_ARG || code == qor::vela::QV_ERR_INCOMPLETE) &&
        !untouched) {
        Fail("a refused request wrote a response", std::to_string(code).c_str());
    }
    if (!untouched && (out == nullptr) != (outLen == 0)) {
        Fail("response buffer and length disagree", std::to_string(outLen).c_str());
    }
}

}  // namespace

extern "C" bool QvSystem(const char* command, char* buffer, unsigned int size, unsigned int) {
    Answer(buffer, size, "");
    const size_t at = qvfuzz::FirstShellActiveCharInCommand(command);
    if (at != std::string::npos) {
        Fail("command line the shell would act on", command);
    }
    if (std::strncmp(command, "ipfw ", 5) != 0) {
        Fail("not an ipfw command", command);
    }
    if ((g_switches & kRunnerFails) != 0) {
        return false;
    }
    RunIpfw(command, buffer, size);
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = (MakeManager(), true);
    (void)ready;
    if (size < 2) {
        return 0;
    }
    const size_t rows = sizeof handlerArr / sizeof handlerArr[0];
    const size_t row = data[0] % (rows + 1);
    g_switches = data[1];
    const int cmd = row < rows ? handlerArr[row].cmd : static_cast<int>(data[0]) << 8;
    QvCommandHandler handler = row < rows ? handlerArr[row].handler : nullHandler;

    const void* in = (g_switches & kNoIn) != 0 ? nullptr : data + 2;
    int inLen = static_cast<int>(size - 2);
    if ((g_switches & kNegativeLen) != 0) {
        inLen = -inLen;
    }
    void* out = reinterpret_cast<void*>(1);
    int outLen = -1;
    const bool noOut = (g_switches & kNoOut) != 0;
    const int code = handler(cmd, in, inLen, noOut ? nullptr : &out, noOut ? nullptr : &outLen);
    CheckResponse(code, out, outLen);
    if (out != reinterpret_cast<void*>(1)) {
        QvPluginFree(out);
    }
    // Keep the store small, so that every save stays cheap.
    g_switches = 0;
    if (g_installed.size() > 64) {
        g_pFwMgr->FlushRules();
    }
    return 0;
}
