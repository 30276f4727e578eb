// Writes the random messages the property and concurrency tests draw, one
// file per name and seed, for a cross build's tests to read (stored_wire.cpp).
//   store_random_wire DIR
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "catalogue_table.hpp"
#include "random_wire.hpp"

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: store_random_wire DIR\n");
        return 2;
    }
    const std::filesystem::path dir(argv[1]);
    std::filesystem::create_directories(dir);
    size_t written = 0;
    const auto store = [&](std::string_view name, uint64_t seed) {
        std::ofstream out(dir / (std::string(name) + "." + std::to_string(seed)), std::ios::binary);
        out << mivo_test::random_wire(name, seed);
        written += bool(out.flush());
    };
    for (const auto &e : mivo_catalogue::entries()) {
        for (uint64_t k = 0; k < mivo_test::property_inputs; ++k) {
            store(e.name, mivo_test::property_seed + k);
        }
    }
    const auto messages = mivo_catalogue::messages();
    for (size_t i = 0; i < messages.size(); ++i) {
        store(messages[i].name, mivo_test::concurrency_seed + i);
    }
    std::printf("%zu messages written to %s\n", written, dir.c_str());
    return written == mivo_catalogue::entry_count * mivo_test::property_inputs + messages.size() ? 0 : 1;
}
