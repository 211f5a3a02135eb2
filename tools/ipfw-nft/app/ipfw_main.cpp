// ipfw for Linux: the simulator's command with nftables enforcing its rules (see
// EnforcingIpfw.h). Run as sysctl or killall (links beside it) it answers as the
// simulator does, on the same state file.
#include "EnforcerClient.h"
#include "FreeBsdTools.h"
#include "ipfwnft/EnforcingIpfw.h"

#include <malloc.h>
#include <unistd.h>

#include <climits>

namespace {

std::string absolute(const std::string& path) {
    char directory[PATH_MAX];
    if (path.empty() || path[0] == '/' || getcwd(directory, sizeof(directory)) == nullptr) {
        return path;
    }
    return std::string(directory) + "/" + path;
}

int enforce(ipfwsim::Environment& environment, ipfwsim::StateStore& store,
            ipfwsim::Console& console, const std::vector<std::string>& arguments) {
    ipfwnft::EnforcerClient table(absolute(ipfwsim::StatePath()));
    return ipfwnft::EnforcingIpfw(environment, store, console, table).run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
    // A change reads a block of up to thousands of rules into a few vectors of a few hundred
    // KiB each; from the heap, the pages one vector left serve the next, where a mapping of
    // its own for each costs every page a fault again.
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    mallopt(M_TRIM_THRESHOLD, 64 << 20);
    return ipfwsim::RunFreeBsdTool(argc, argv, enforce);
}
