#include "message_table.hpp"

#include "mivo_obfl_mgr_catalogue.h"
#include "mivo_tesk_eid_init.h"

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

// The identifier's decoder merges into what it is given, so this wrapper
// starts it from defaults like a message decoder does.
#define MIVO_TEST_EID_OPS                                                                                    \
    message_ops{                                                                                             \
        "tesk_eid_st",                                                                                       \
        sizeof(mivo_tesk_eid_st),                                                                            \
        [](const void *r, uint8_t *d, size_t n, mivo_bytes *f, unsigned *c, mivo_flags fl) {                 \
            return mivo_tesk_eid_st_encode_ext(static_cast<const mivo_tesk_eid_st *>(r), d, n, f, c, fl);    \
        },                                                                                                   \
        [](void *r, const uint8_t *s, size_t n, mivo_alloc_t *a, void *t, mivo_flags fl) {                   \
            mivo_tesk_eid_st_init(static_cast<mivo_tesk_eid_st *>(r));                                       \
            return mivo_tesk_eid_st_decode_ext(static_cast<mivo_tesk_eid_st *>(r), s, n, a, t, fl);          \
        },                                                                                                   \
        [](void *d, const void *s, mivo_alloc_t *a, void *t) {                                               \
            return mivo_tesk_eid_st_duplicate(static_cast<mivo_tesk_eid_st *>(d),                            \
                                              static_cast<const mivo_tesk_eid_st *>(s), a, t);               \
        },                                                                                                   \
        [](void *r, mivo_free_t *f, void *t, mivo_flags fl) {                                                \
            mivo_tesk_eid_st_free_ext(static_cast<mivo_tesk_eid_st *>(r), f, t, fl);                         \
        },                                                                                                   \
    }

const std::array targets{MIVO_OBFL_MGR_CATALOGUE(MIVO_TEST_MESSAGE_OPS) MIVO_TEST_EID_OPS};

#define MIVO_TEST_SIZE_CHECK(rec, FIELDS) static_assert(sizeof(struct rec) <= sizeof(record_storage));
MIVO_OBFL_MGR_CATALOGUE(MIVO_TEST_SIZE_CHECK)
static_assert(sizeof(mivo_tesk_eid_st) <= sizeof(record_storage));

} // namespace

std::span<const message_ops> all_messages() { return std::span(targets).first(targets.size() - 1); }
std::span<const message_ops> all_targets() { return targets; }

const message_ops *find_message(std::string_view name)
{
    for (const auto &m : targets) {
        if (m.name == name) {
            return &m;
        }
    }
    return nullptr;
}

} // namespace mivo_test
