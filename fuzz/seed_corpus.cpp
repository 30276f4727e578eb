// Writes the fuzzer's seed corpus: for every target, random valid messages
// serialised by libprotobuf, each behind the two selector bytes and in a few
// flag and failure variants, so the fuzzer starts from deep, well-formed input.
//   seed_corpus DIR [PER_TARGET]
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "decode_invariants.hpp"
#include "catalogue_table.hpp"
#include "random_wire.hpp"

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: seed_corpus DIR [PER_TARGET]\n");
        return 2;
    }
    const std::filesystem::path dir(argv[1]);
    const unsigned per_target = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 8;
    std::filesystem::create_directories(dir);
    // Plain, shared, with the 1st or 3rd allocation failing, and shared
    // without an allocator.
    static const char controls[] = {'\x00', '\x01', '\x02', '\x07', '\xFF'};
    for (size_t t = 0; t < mivo_catalogue::entry_count; ++t) {
        for (unsigned v = 0; v < per_target; ++v) {
            std::string bytes{static_cast<char>(t), controls[v % std::size(controls)]};
            bytes += mivo_test::random_wire(mivo_catalogue::entries()[t].name, t * 1000 + v);
            std::ofstream(dir / ("seed-" + std::to_string(t) + "-" + std::to_string(v)), std::ios::binary) << bytes;
        }
    }
    std::printf("%zu seeds written to %s\n", mivo_catalogue::entry_count * per_target, dir.c_str());
    return 0;
}
