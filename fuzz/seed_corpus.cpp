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

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include "decode_invariants.hpp"
#include "message_table.hpp"
#include "pb_corpus.hpp"

namespace {

void write_seed(const std::filesystem::path &dir, size_t target, unsigned variant, uint8_t control,
                const std::string &wire)
{
    std::string bytes;
    bytes.push_back(static_cast<char>(target));
    bytes.push_back(static_cast<char>(control));
    bytes += wire;
    std::ofstream(dir / ("seed-" + std::to_string(target) + "-" + std::to_string(variant)), std::ios::binary) << bytes;
}

// An identifier's bytes, taken from a random request that carries one.
std::string identifier_wire(uint64_t seed)
{
    auto m = mivo_test::random_message("svc_regn", seed);
    const auto *field = m->GetDescriptor()->FindFieldByName("tgt_eid");
    return m->GetReflection()->GetMessage(*m, field).SerializeAsString();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: seed_corpus DIR [PER_TARGET]\n");
        return 2;
    }
    const std::filesystem::path dir(argv[1]);
    const unsigned per_target = argc > 2 ? static_cast<unsigned>(std::atoi(argv[2])) : 8;
    std::filesystem::create_directories(dir);
    const auto messages = mivo_test::all_messages();
    for (size_t t = 0; t < mivo_fuzz::target_count; ++t) {
        for (unsigned v = 0; v < per_target; ++v) {
            const uint64_t seed = t * 1000 + v;
            const std::string wire = t < messages.size()
                                         ? mivo_test::random_message_bytes(std::string(messages[t].name), seed)
                                         : identifier_wire(seed);
            // Plain, shared, with the 1st or 3rd allocation failing, and
            // shared without an allocator.
            static const uint8_t controls[] = {0x00, 0x01, 0x02, 0x07, 0xFF};
            write_seed(dir, t, v, controls[v % std::size(controls)], wire);
        }
    }
    std::printf("%zu seeds written to %s\n", mivo_fuzz::target_count * per_target, dir.c_str());
    return 0;
}
