// The fuzzer's checks, shared by the libFuzzer entry point and the replay
// program that runs them over stored inputs in ordinary builds.
//
// Input layout: byte 0 picks the target (the 37 messages, then the entity
// identifier), byte 1 holds the decode flags (bit 0) and, in bits 1-7, which
// allocation to fail (0: none; 127: no allocator at all); the rest is the
// wire input.
#pragma once

#include <cstddef>
#include <cstdint>

namespace mivo_fuzz {

inline constexpr size_t target_count = 38;
inline constexpr size_t no_allocator = 127; // bits 1-7 of byte 1 all set

// Runs every check on one input; aborts with a message on any violation.
void check_one_input(const uint8_t *data, size_t size);

} // namespace mivo_fuzz
