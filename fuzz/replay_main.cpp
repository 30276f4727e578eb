// Runs the fuzzer's checks over stored inputs without libFuzzer: every file
// named on the command line, or every file in a named directory.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "decode_invariants.hpp"

namespace fs = std::filesystem;

static int replay(const fs::path &file)
{
    std::ifstream in(file, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    mivo_fuzz::check_one_input(bytes.data(), bytes.size());
    return 1;
}

int main(int argc, char **argv)
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const fs::path p(argv[i]);
        if (fs::is_directory(p)) {
            for (const auto &entry : fs::directory_iterator(p)) {
                if (entry.is_regular_file() && entry.path().filename() != "README.md") {
                    count += replay(entry.path());
                }
            }
        } else {
            count += replay(p);
        }
    }
    std::printf("%d inputs replayed, all invariants held\n", count);
    return 0;
}
