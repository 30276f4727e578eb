// Writes the random messages that the property and concurrency tests draw,
// a file per name and seed, for a cross build's tests (stored_wire.cpp).
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
    std::error_code absent_parent; // then the writes fail and say so
    std::filesystem::create_directories(dir, absent_parent);
    bool ok = true;
    const auto store = [&](std::string_view name, uint64_t seed) {
        std::ofstream out(dir / (std::string(name) + "." + std::to_string(seed)), std::ios::binary);
        ok = (out << mivo_test::random_wire(name, seed)).flush() && ok;
    };
    for (size_t i = 0; i < mivo_catalogue::entry_count; ++i) {
        const std::string_view name = mivo_catalogue::entries()[i].name;
        for (uint64_t k = 0; k < mivo_test::property_inputs; ++k) {
            store(name, mivo_test::property_seed + k);
        }
        if (i < mivo_catalogue::message_count) {
            store(name, mivo_test::concurrency_seed + i); // messages come first
        }
    }
    std::fprintf(ok ? stdout : stderr, ok ? "written to %s\n" : "cannot write to %s\n", dir.c_str());
    return ok ? 0 : 1;
}
