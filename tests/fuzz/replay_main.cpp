// Runs a fuzz target's checks over given files, or over every file of given
// directories, without libFuzzer: the sanitizer build that replays a seed
// corpus or a crashing input on its own.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

bool replay(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "replay: cannot read %s\n", path.c_str());
        return false;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE|DIRECTORY...\n", argv[0]);
        return 2;
    }
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (std::filesystem::is_directory(argv[i], error)) {
            for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
                if (!entry.is_regular_file()) continue;
                if (!replay(entry.path())) return 1;
                ++count;
            }
        } else {
            if (!replay(argv[i])) return 1;
            ++count;
        }
    }
    std::printf("replay: %zu inputs, no finding\n", count);
    return count > 0 ? 0 : 1;
}
