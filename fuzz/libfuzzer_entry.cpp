#include "decode_invariants.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    mivo_fuzz::check_one_input(data, size);
    return 0;
}
