#include "catalogue_table.hpp"
#include <iterator>

#include "mivo_tesk_eid_catalogue.h"
#include "mivo_tesk_eid_init.h"

namespace mivo_catalogue {
namespace {

#define MIVO_CATALOGUE_MEMBER(rec, KIND, name, ctype) +1
#define MIVO_CATALOGUE_ENTRY(rec, FIELDS, ...)                                                             \
    entry{                                                                                                 \
        std::string_view(#rec).substr(5),                                                                  \
        sizeof(struct rec),                                                                                \
        0 FIELDS(MIVO_CATALOGUE_MEMBER, rec),                                                              \
        [](const void *r, uint8_t *d, size_t n, mivo_bytes *f, unsigned *c, mivo_flags fl) {               \
            return rec##_encode_ext(static_cast<const struct rec *>(r), d, n, f, c, fl);                   \
        },                                                                                                 \
        [](void *r, const uint8_t *s, size_t n, mivo_alloc_t *a, void *t, mivo_flags fl) {                 \
            __VA_ARGS__                                                                                    \
            return rec##_decode_ext(static_cast<struct rec *>(r), s, n, a, t, fl);                         \
        },                                                                                                 \
        [](void *d, const void *s, mivo_alloc_t *a, void *t) {                                             \
            return rec##_duplicate(static_cast<struct rec *>(d), static_cast<const struct rec *>(s), a, t); \
        },                                                                                                 \
        [](void *r, mivo_free_t *f, void *t, mivo_flags fl) {                                              \
            rec##_free_ext(static_cast<struct rec *>(r), f, t, fl);                                        \
        },                                                                                                 \
    },
#define MIVO_CATALOGUE_FITS(rec, FIELDS) static_assert(sizeof(struct rec) <= sizeof(record_storage));

// The identifier's decoder merges into what it is given.
const entry table[] = {
    MIVO_OBFL_MGR_CATALOGUE(MIVO_CATALOGUE_ENTRY)
    MIVO_CATALOGUE_ENTRY(mivo_tesk_eid_st, MIVO_TESK_FIELDS_eid_st,
                         mivo_tesk_eid_st_init(static_cast<mivo_tesk_eid_st *>(r));)
};
static_assert(std::size(table) == entry_count);
MIVO_OBFL_MGR_CATALOGUE(MIVO_CATALOGUE_FITS)
MIVO_CATALOGUE_FITS(mivo_tesk_eid_st, )

} // namespace

std::span<const entry> entries() { return table; }
std::span<const entry> messages() { return entries().first(message_count); }

const entry *find(std::string_view name)
{
    for (const entry &e : table) {
        if (e.name == name) {
            return &e;
        }
    }
    return nullptr;
}

} // namespace mivo_catalogue
