// The daemon's control-socket frames: arbitrary bytes from a peer that then hangs up,
// read frame by frame as the daemon reads requests. Every frame read must be exactly the
// bytes it came from (written again, they give the same bytes back), and the reading must
// end, cleanly between frames or as malformed inside one, never wait.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "FrameChannel.h"
#include "FuzzWorld.h"

namespace {

// The bytes `frames` make when written, read back from a socket.
std::string Written(const std::string& payloads, uint32_t head) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        qvfuzz::Fail("socketpair");
    }
    qvctl::FrameChannel(fds[0]).Write(head, payloads);
    close(fds[0]);
    std::string bytes;
    char chunk[4096];
    for (ssize_t got; (got = read(fds[1], chunk, sizeof chunk)) > 0;) {
        bytes.append(chunk, static_cast<size_t>(got));
    }
    close(fds[1]);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int fds[2];
    if (size > 65536 || socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        return 0;
    }
    if (write(fds[1], data, size) != static_cast<ssize_t>(size)) {
        qvfuzz::Fail("cannot hand over the input");
    }
    shutdown(fds[1], SHUT_WR);
    // A time-out turns a wait for bytes that never come into a failure of the target.
    qvctl::FrameChannel channel(fds[0], -1, 5000);
    std::string consumed;
    qvctl::Frame frame;
    qvctl::FrameStatus status;
    while ((status = channel.Read(&frame)) == qvctl::FrameStatus::kOk) {
        consumed += Written(frame.payload, frame.head);
    }
    close(fds[0]);
    close(fds[1]);
    if (status == qvctl::FrameStatus::kTimedOut || status == qvctl::FrameStatus::kStopped) {
        qvfuzz::Fail("reading waited instead of ending");
    }
    const std::string input(reinterpret_cast<const char*>(data), size);
    if (input.compare(0, consumed.size(), consumed) != 0) {
        qvfuzz::Fail("frames read are not the bytes sent");
    }
    if (status == qvctl::FrameStatus::kClosed && consumed.size() != size) {
        qvfuzz::Fail("a clean end inside a frame");
    }
    return 0;
}
