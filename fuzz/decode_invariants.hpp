// The checks that must hold for any input, shared by the libFuzzer entry
// point, the replay program that runs them over stored inputs, and the
// property tests that run them over generated ones; and the encoder's bounds,
// which the property and worked-example tests check on every record.
//
// Fuzzer input layout: byte 0 picks the catalogue entry (the 37 messages,
// then the entity identifier), byte 1 holds the decode flags (bit 0) and, in
// bits 1-7, which allocation of the decode and of the copy to fail (0: none;
// 127: no allocator at all); the rest is the wire input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "catalogue_table.hpp"

namespace mivo_fuzz {

inline constexpr size_t no_allocator = 127; // bits 1-7 of byte 1 all set

struct input_case {
    size_t target = 0; // index into mivo_catalogue::entries()
    mivo_flags flags = MIVO_FLAGS_NONE;
    size_t decode_fail_at = 0; // 1-based allocation to fail; 0 none; no_allocator
    size_t copy_fail_at = 0;   // likewise for the copy of the decoded record
};

// Runs every check on one input: empty when all held, else which one failed.
std::string violation(const input_case &c, std::span<const uint8_t> wire);

// The fuzzer's layout; aborts with a message on any violation.
void check_one_input(const uint8_t *data, size_t size);

// Encodes the record, plain and shared, into every buffer size from 0 to past
// its full length, with and without a fragment list, and with every fragment
// capacity: the result is always the full length and the count the full
// count; nothing is stored outside the buffer or the capacity, and what is
// stored is the full encoding's byte or piece. Pieces are never empty, those
// in the buffer follow each other from its start, and together they make
// the plain encoding. Empty when all held, else which one failed.
std::string writing_violation(const mivo_catalogue::entry &m, const void *record);

} // namespace mivo_fuzz
