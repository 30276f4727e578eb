// Seeded random messages of the catalogue, built and serialised by
// libprotobuf through reflection over the schema that obfl-wire exports: an
// encoder that shares nothing with ours, for the differential and property
// tests, the concurrency test and the fuzzer's seeds.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

namespace mivo_test {

// The message of that name ("svc_regn", "tesk_eid_st"), null if none.
const google::protobuf::Descriptor *schema_message(std::string_view name);

// An empty dynamic message of that type.
std::unique_ptr<google::protobuf::Message> new_message(const google::protobuf::Descriptor *type);

// A random message, the same for the same type and seed: random presence;
// numbers biased to the varint length boundaries and the extremes of their
// type (negative int32 included); strings
// empty, long or non-ASCII; byte strings with NUL bytes; lists empty, short
// or 100+ long; nested messages absent, present but empty, or filled.
std::unique_ptr<google::protobuf::Message> random_message(const google::protobuf::Descriptor *type, uint64_t seed);

// libprotobuf's encoding of random_message(schema_message(name), seed).
std::string random_wire(std::string_view name, uint64_t seed);

} // namespace mivo_test
