// fill() and read() between the libprotobuf messages of obfl_catalogue.proto
// and our C records; the definitions are generated from the .proto by
// gen_bridge.py.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "nuvex.h"

namespace google::protobuf {
class Message;
}

namespace mivo_test {

// Owns every string and array that a filled record points at.
class arena {
public:
    const char *string(const std::string &s)
    {
        char *p = static_cast<char *>(block(s.size() + 1));
        std::memcpy(p, s.data(), s.size());
        return p;
    }
    // Never a null data pointer, also for an empty block, so that "present
    // but empty" cannot be mistaken for "nothing there".
    mivo_bytes bytes(const std::string &s)
    {
        auto *p = static_cast<uint8_t *>(block(s.size() + 1));
        std::memcpy(p, s.data(), s.size());
        return {p, s.size()};
    }
    // Zeroed, which is also the default state of every nested record.
    template <class T> T *array(size_t count) { return static_cast<T *>(block(sizeof(T) * (count ? count : 1))); }

private:
    // Words rather than max_align_t: value-initialising a long double leaves
    // its padding bytes undefined. Nothing in a record needs more than 8.
    void *block(size_t size)
    {
        blocks_.push_back(std::make_unique<uint64_t[]>(size / sizeof(uint64_t) + 1));
        return blocks_.back().get();
    }
    std::vector<std::unique_ptr<uint64_t[]>> blocks_;
};

// What fill() leaves in a member the message does not carry: nothing, a value
// whose flag is clear, or a flag without a value (a null string, an empty
// list). None of these may reach the wire.
class absent_noise {
public:
    enum choice { clean, value_without_flag, flag_without_value };
    explicit absent_noise(uint64_t seed) : rng_(seed) {}
    choice pick() { return static_cast<choice>(rng_() % 3); }
    bool coin() { return rng_() & 1; }
    uint64_t junk() { return rng_() | 1; }

private:
    std::mt19937_64 rng_;
};

struct bridge_ops {
    std::string_view name; // the record's name without "mivo_"
    size_t record_size;
    int field_count;
    // Initialises the record, then sets the members the message carries; with
    // noise, absent members get leftovers that must not be sent.
    void (*fill)(const google::protobuf::Message &message, void *record, arena &a, absent_noise *noise);
    // Clears the message, then copies what the record holds, by the encoder's
    // presence rules.
    void (*read)(const void *record, google::protobuf::Message &message);
};

std::span<const bridge_ops> bridged_messages();

} // namespace mivo_test
