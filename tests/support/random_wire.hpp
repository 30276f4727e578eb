// Seeded random messages of the catalogue, built and serialised by
// libprotobuf through reflection over the schema that obfl-wire exports: an
// encoder that shares nothing with ours, for the differential and property
// tests, the concurrency test and the fuzzer's seeds.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace mivo_test {

// libprotobuf's encoding of random_message(schema_message(name), seed).
// A cross build has no libprotobuf for its target: there it reads the
// message from the file that store_random_wire, run natively, wrote.
std::string random_wire(std::string_view name, uint64_t seed);

// The seeds the property and concurrency tests draw, which are the ones
// store_random_wire writes.
inline constexpr uint64_t property_seed = 9100, property_inputs = 6; // each entry
inline constexpr uint64_t concurrency_seed = 7000;                   // + the message's index

} // namespace mivo_test
