// Replays every file of the given directories (or the given files) through the fuzz
// target, so that the corpus runs as an ordinary test in every build.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    int failures = 0;
    int replayed = 0;
    const auto replay = [&](const std::filesystem::path& path) {
        ++replayed;
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
            ++failures;
            return;
        }
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    };
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            replay(argv[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            if (entry.is_regular_file()) {
                replay(entry.path());
            }
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return failures == 0 && replayed > 0 ? 0 : 1;
}
