// libmivo_tesk_eid: the entity-identifier codec. The identifier and its
// nested records are described like catalogue records and run through the
// same engine, so their wire form obeys the same rules.
#include "mivo_tesk_eid_description.hpp"
#include "nuvex/decode.hpp"
#include "nuvex/duplicate.hpp"
#include "nuvex/encode.hpp"
#include "nuvex/release.hpp"

size_t mivo_tesk_eid_st_encode_ext(const struct mivo_tesk_eid_st *source_p, uint8_t *dest_p, size_t dest_size,
                                   struct mivo_bytes *frags, unsigned int *frags_count_p, enum mivo_flags flags)
{
    (void)frags;
    // Everything lands in the buffer; reporting no pieces lets the caller's
    // own inline piece cover these bytes exactly once. The count is set
    // first so that the engine's call is the last thing done.
    if (frags_count_p != nullptr) {
        *frags_count_p = 0;
    }
    return nuvex::encode(*source_p, dest_p, dest_size, nullptr, nullptr, flags);
}

int mivo_tesk_eid_st_decode_ext(struct mivo_tesk_eid_st *dest_p, const uint8_t *source_p, size_t source_size,
                                mivo_alloc_t *alloc_p, void *token, enum mivo_flags flags)
{
    nuvex::decoder d(source_p, source_size, alloc_p, token, flags);
    return d.fields(*dest_p);
}

int mivo_tesk_eid_st_duplicate(struct mivo_tesk_eid_st *dest_p, const struct mivo_tesk_eid_st *source_p,
                               mivo_alloc_t *alloc_p, void *token)
{
    return nuvex::duplicate(*dest_p, *source_p, alloc_p, token);
}

void mivo_tesk_eid_st_free_ext(struct mivo_tesk_eid_st *msg_p, mivo_free_t *free_p, void *token,
                               enum mivo_flags flags)
{
    nuvex::release(*msg_p, free_p, token, flags);
}
