// Every message's (and the identifier's) four entry points behind one type-erased interface, so a
// test or a fuzzer can walk all 37 with one loop. Records are kept in
// opaque, suitably aligned storage of record_size bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "mivo_obfl_mgr_def.h"

namespace mivo_test {

struct message_ops {
    std::string_view name; // without the mivo_ prefix, e.g. "svc_regn"
    size_t record_size;
    size_t (*encode)(const void *record, uint8_t *dest, size_t dest_size, mivo_bytes *frags, unsigned *frags_count,
                     mivo_flags flags);
    int (*decode)(void *record, const uint8_t *source, size_t size, mivo_alloc_t *alloc, void *token,
                  mivo_flags flags);
    int (*duplicate)(void *dest, const void *source, mivo_alloc_t *alloc, void *token);
    void (*release)(void *record, mivo_free_t *free, void *token, mivo_flags flags);
};

// Large enough and aligned for any record of the catalogue.
struct alignas(16) record_storage {
    unsigned char bytes[512];
};

std::span<const message_ops> all_messages();
// The 37 messages, then the entity identifier ("tesk_eid_st").
std::span<const message_ops> all_targets();
const message_ops *find_message(std::string_view name); // any target

} // namespace mivo_test
