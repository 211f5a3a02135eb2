// qvfwctl's sub-commands against a daemon whose replies cannot be read: each is an error
// with exit status 1 and a line that says so, never an empty success.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "CommandTable.h"
#include "ControlClient.h"
#include "CtlArguments.h"
#include "FrameChannel.h"
#include "TempDir.h"
#include "TestUtil.h"

namespace {

// A control socket that answers every request with code 0 and the same payload, twice:
// an event stream takes the second as its first event, a call leaves it unread.
struct CannedDaemon {
    explicit CannedDaemon(const std::string& payload)
        : server(path(), [payload](int peer) {
              qvctl::FrameChannel channel(peer, -1, 5000);
              qvctl::Frame request;
              while (channel.Read(&request) == qvctl::FrameStatus::kOk &&
                     channel.Write(0, payload) && channel.Write(0, payload)) {
              }
          }) {
        EXPECT_TRUE(server.listening());
    }
    std::string path() const { return dir.file("control.sock"); }

    qvtest::TempDir dir;
    qvtest::UnixServer server;
};

struct Ran {
    int status;
    std::string out;
    std::string err;
};

Ran RunCtl(const std::string& socketPath, const std::vector<std::string>& arguments) {
    qvctl::CtlArguments parsed;
    std::string error;
    EXPECT_TRUE(qvctl::ParseCtlArguments(arguments, socketPath.c_str(), &parsed, &error)) << error;
    const qvctl::SubCommandEntry* entry = qvctl::FindSubCommand(parsed.command);
    EXPECT_NE(nullptr, entry);
    char* outText = nullptr;
    char* errText = nullptr;
    size_t outSize = 0;
    size_t errSize = 0;
    FILE* out = open_memstream(&outText, &outSize);
    FILE* err = open_memstream(&errText, &errSize);
    qvctl::ControlClient client(socketPath);
    qvctl::CtlContext context{parsed, client, stdin, out, err};
    Ran ran{entry == nullptr ? -1 : entry->run(context), "", ""};
    fclose(out);
    fclose(err);
    ran.out.assign(outText, outSize);
    ran.err.assign(errText, errSize);
    free(outText);
    free(errText);
    return ran;
}

const std::string kRule = "{\"action\":\"ACTION_DENY\"}";
const std::string kList = "[{\"order\":1,\"rule\":" + kRule + "}]";

TEST(CtlRepliesTest, AReplyThatDoesNotParseIsAnError) {
    CannedDaemon daemon(std::string(4, '\x07'));  // wire type 7 exists nowhere
    const std::vector<std::vector<std::string>> commands = {
        {"add", kRule},       {"add-exception", kRule}, {"list"},   {"list-exceptions"},
        {"add-rules", kList}, {"set-rules", kList},     {"status"}, {"events"}};
    for (const std::vector<std::string>& command : commands) {
        const Ran ran = RunCtl(daemon.path(), command);
        EXPECT_EQ(1, ran.status) << command[0] << ": " << ran.err;
        EXPECT_NE(std::string::npos, ran.err.find("qvfwctl: cannot read")) << command[0];
    }
}

// An empty reply parses as an empty message; what a command must get back is checked too.
TEST(CtlRepliesTest, AReplyWithoutWhatTheCommandNeedsIsAnError) {
    CannedDaemon daemon("");
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"add", kRule}, {"status"}}) {
        const Ran ran = RunCtl(daemon.path(), command);
        EXPECT_EQ(1, ran.status) << command[0];
        EXPECT_EQ("", ran.out) << command[0];
        EXPECT_NE(std::string::npos, ran.err.find("qvfwctl: ")) << command[0];
    }
    // An empty list is a list.
    EXPECT_EQ(0, RunCtl(daemon.path(), {"list"}).status);
}

}  // namespace
