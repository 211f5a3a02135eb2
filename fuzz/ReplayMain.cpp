// Replays every file of the given directories (or the given files) through the fuzz
// target, so that the corpus runs as an ordinary test in every build.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int replayFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int failures = 0;
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg)) {
                if (entry.is_regular_file()) {
                    failures += replayFile(entry.path());
                    ++replayed;
                }
            }
        } else {
            failures += replayFile(arg);
            ++replayed;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return failures == 0 && replayed > 0 ? 0 : 1;
}
