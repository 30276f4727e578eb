// The catalogue as one table: the 37 messages in declaration order, then the
// entity identifier, each with its record size, member count and four entry
// points behind one type-erased signature, so that our own programs (tests,
// the fuzzer, obfl-wire) walk every record with one loop. Internal, not
// installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "mivo_obfl_mgr_catalogue.h"
#include "mivo_obfl_mgr_def.h"

namespace mivo_catalogue {

struct entry {
    std::string_view name; // without the mivo_ prefix: "svc_regn", "tesk_eid_st"
    size_t record_size;
    unsigned member_count;
    size_t (*encode)(const void *record, uint8_t *dest, size_t dest_size, mivo_bytes *frags, unsigned *frags_count,
                     mivo_flags flags);
    // The identifier's entry resets the record first, as a message decoder does.
    int (*decode)(void *record, const uint8_t *source, size_t size, mivo_alloc_t *alloc, void *token,
                  mivo_flags flags);
    int (*duplicate)(void *dest, const void *source, mivo_alloc_t *alloc, void *token);
    void (*release)(void *record, mivo_free_t *free, void *token, mivo_flags flags);
};

#define MIVO_CATALOGUE_ONE(rec, FIELDS) +1
inline constexpr size_t message_count = 0 MIVO_OBFL_MGR_CATALOGUE(MIVO_CATALOGUE_ONE);
#undef MIVO_CATALOGUE_ONE
inline constexpr size_t entry_count = message_count + 1; // and the identifier

// Large enough and aligned for any record of the table.
struct alignas(16) record_storage {
    unsigned char bytes[512];
};

std::span<const entry> entries();  // the messages, then the identifier
std::span<const entry> messages(); // the messages alone
const entry *find(std::string_view name);

} // namespace mivo_catalogue
