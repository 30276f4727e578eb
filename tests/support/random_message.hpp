// The dynamic messages behind random_wire, for the tests that compare with
// libprotobuf message by message.
#pragma once

#include <memory>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include "random_wire.hpp"

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

} // namespace mivo_test
