// random_wire on a target without libprotobuf: the message that the native
// build's store_random_wire wrote for that name and seed.
#include "random_wire.hpp"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace mivo_test {

std::string random_wire(std::string_view name, uint64_t seed)
{
    const std::string path = MIVO_STORED_WIRE "/" + std::string(name) + "." + std::to_string(seed);
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "%s is missing: store_random_wire, run natively, writes it\n", path.c_str());
        std::abort();
    }
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace mivo_test
