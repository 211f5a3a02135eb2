// Every command handler of the table on arbitrary request bytes, the way a host calls
// them, down to the command lines the rule sets run. The manager runs them on an
// in-memory ipfw (the simulator's core), which aborts on any line the shell would act on.
//
// Input: byte 0 picks the table row (one past the end: the default handler), byte 1 holds
// fault switches, the rest is the request.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "CommandTable.h"
#include "FuzzWorld.h"
#include "FwMgr.h"
#include "Handler.h"
#include "InMemoryIpfw.h"
#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "QvGeneral.h"
#include "QvLog.h"
#include "RecordingEventSink.h"

namespace {

using qor::vela::Result;

enum Switch : uint8_t {
    kNoOut = 1,         // out and outLen are null
    kNoIn = 2,          // in is null (length kept)
    kRunnerFails = 4,   // no command line can be run
    kIpfwRefuses = 8,   // ipfw prints an error for every add
    kNegativeLen = 16,  // the request length is negated
};

uint8_t g_switches = 0;

std::optional<Result<std::string>> Fault(const std::string& command) {
    if ((g_switches & kRunnerFails) != 0) {
        return Result<std::string>::Failure(QV_ERR_CMD);
    }
    if ((g_switches & kIpfwRefuses) != 0 && command.rfind("ipfw -q add ", 0) == 0) {
        return Result<std::string>::Success("ipfw: invalid rule\n");
    }
    return std::nullopt;
}

void MakeManager() {
    const std::string dir = qvfuzz::MakeConfDir();
    const std::string config = qvfuzz::ConfigXml(dir);
    qvfuzz::WriteFile(dir + "/QvFw.conf.plist", config.data(), config.size());
    qvfuzz::WriteFile(dir + "/ipfw.log", "", 0);
    // Logging on at the top level, so that every format string meets the fuzzed values.
    g_debugLogContext = QvrnCreateDbgLog("QvFw", "/dev/null", 7);
    auto ipfw = std::make_unique<qvtest::InMemoryIpfw>();
    ipfw->override(Fault);
    g_pFwMgr =
        new qor::vela::FwMgr(std::move(ipfw), std::make_unique<qvtest::RecordingEventSink>());
    if (!g_pFwMgr->Init().ok()) {
        qvfuzz::Fail("the manager did not start", dir.c_str());
    }
}

// Argument and decoding failures write nothing; an answer is a buffer with its length.
void CheckResponse(int code, const void* out, int outLen) {
    const bool untouched = out == reinterpret_cast<void*>(1) && outLen == -1;
    if ((code == QV_ERR_INVALID_ARG || code == QV_ERR_INCOMPLETE) && !untouched) {
        qvfuzz::Fail("a refused request wrote a response", std::to_string(code).c_str());
    }
    if (!untouched && (out == nullptr) != (outLen == 0)) {
        qvfuzz::Fail("response buffer and length disagree", std::to_string(outLen).c_str());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = (MakeManager(), true);
    static unsigned runs = 0;
    (void)ready;
    if (size < 2) {
        return 0;
    }
    const size_t rows = kHandlerCount;
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
        free(out);
    }
    g_switches = 0;
    // Keep the store and ipfw small, so that every save and every command stays cheap.
    if (++runs % 256 == 0) {
        (void)g_pFwMgr->FlushRules();
    }
    return 0;
}
