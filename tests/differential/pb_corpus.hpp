// Seeded random messages of the OBFL catalogue, built and serialised by
// libprotobuf from obfl_catalogue.proto: an encoder that shares nothing with
// ours, for differential tests, property tests and fuzzer seeds.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace google::protobuf {
class Message;
}

namespace mivo_test {

// The 37 record names without the "mivo_" prefix, in .proto order.
std::vector<std::string> catalogue_message_names();

// libprotobuf's serialisation of random_message(name, seed).
std::string random_message_bytes(std::string_view name, uint64_t seed);

// A random message of that record, the same for the same name and seed:
// random presence; numbers biased to the varint length boundaries and the
// extremes of their type (negative int32 included); strings empty, long or
// non-ASCII; byte strings with NUL bytes; lists empty, short or 100+ long;
// entity identifiers absent, present but empty, or populated with tsi lists.
// Null for an unknown name. Include <google/protobuf/message.h> to use it.
std::unique_ptr<google::protobuf::Message> random_message(std::string_view name, uint64_t seed);

// An empty message of that record (null for an unknown name).
std::unique_ptr<google::protobuf::Message> new_message(std::string_view name);

} // namespace mivo_test
