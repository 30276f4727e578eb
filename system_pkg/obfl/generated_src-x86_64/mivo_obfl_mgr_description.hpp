// The catalogue as the codec engine sees it: one description per record,
// expanded from the same field lists as the public record declarations, and
// the entity identifier as a record of another library, whose four
// operations the engine calls for every EID member.
#pragma once

#include "mivo_obfl_mgr_catalogue.h"
#include "mivo_obfl_mgr_init.h"
#include "nuvex/description.hpp"
#include "nuvex/external.hpp"

MIVO_OBFL_MGR_CATALOGUE(NUVEX_DESCRIBE_RECORD)

template <>
struct nuvex::external_codec<mivo_tesk_eid_st> {
    // The identifier's codec writes all of it into the buffer and reports
    // no pieces of its own.
    static constexpr bool reports_pieces = false;

    static size_t encode(const mivo_tesk_eid_st &id, uint8_t *dest, size_t dest_size, mivo_bytes *frags,
                         unsigned *frags_count_p, mivo_flags flags)
    {
        return mivo_tesk_eid_st_encode_ext(&id, dest, dest_size, frags, frags_count_p, flags);
    }
    static int decode(mivo_tesk_eid_st &id, const uint8_t *source, size_t size, mivo_alloc_t *alloc, void *token,
                      mivo_flags flags)
    {
        return mivo_tesk_eid_st_decode_ext(&id, source, size, alloc, token, flags);
    }
    static int duplicate(mivo_tesk_eid_st &dest, const mivo_tesk_eid_st &source, mivo_alloc_t *alloc, void *token)
    {
        return mivo_tesk_eid_st_duplicate(&dest, &source, alloc, token);
    }
    static void release(mivo_tesk_eid_st &id, mivo_free_t *free, void *token, mivo_flags flags)
    {
        mivo_tesk_eid_st_free_ext(&id, free, token, flags);
    }
};
