#include "message_table.hpp"

#include "mivo_obfl_mgr_catalogue.h"

#include <array>

namespace mivo_test {
namespace {

#define MIVO_TEST_MESSAGE_OPS(rec, FIELDS)                                                                   \
    message_ops{                                                                                             \
        std::string_view(#rec).substr(5),                                                                    \
        sizeof(struct rec),                                                                                  \
        [](const void *r, uint8_t *d, size_t n, mivo_bytes *f, unsigned *c, mivo_flags fl) {                 \
            return rec##_encode_ext(static_cast<const struct rec *>(r), d, n, f, c, fl);                     \
        },                                                                                                   \
        [](void *r, const uint8_t *s, size_t n, mivo_alloc_t *a, void *t, mivo_flags fl) {                   \
            return rec##_decode_ext(static_cast<struct rec *>(r), s, n, a, t, fl);                           \
        },                                                                                                   \
        [](void *d, const void *s, mivo_alloc_t *a, void *t) {                                               \
            return rec##_duplicate(static_cast<struct rec *>(d), static_cast<const struct rec *>(s), a, t);  \
        },                                                                                                   \
        [](void *r, mivo_free_t *f, void *t, mivo_flags fl) { rec##_free_ext(static_cast<struct rec *>(r), f, t, fl); }, \
    },

const std::array messages{MIVO_OBFL_MGR_CATALOGUE(MIVO_TEST_MESSAGE_OPS)};

#define MIVO_TEST_SIZE_CHECK(rec, FIELDS) static_assert(sizeof(struct rec) <= sizeof(record_storage));
MIVO_OBFL_MGR_CATALOGUE(MIVO_TEST_SIZE_CHECK)

} // namespace

std::span<const message_ops> all_messages() { return messages; }

const message_ops *find_message(std::string_view name)
{
    for (const auto &m : messages) {
        if (m.name == name) {
            return &m;
        }
    }
    return nullptr;
}

} // namespace mivo_test
