// The 37 decoders: the engine's decoder instantiated once per record.
#include "mivo_obfl_mgr_description.hpp"
#include "nuvex/decode.hpp"

#define MIVO_DEFINE_DECODER(rec, FIELDS)                                                                 \
    int rec##_decode_ext(struct rec *dest_p, const uint8_t *source_p, size_t source_size,                \
                         mivo_alloc_t *alloc_p, void *token, enum mivo_flags flags)                      \
    {                                                                                                    \
        return nuvex::decode(*dest_p, source_p, source_size, alloc_p, token, flags);                     \
    }

MIVO_OBFL_MGR_CATALOGUE(MIVO_DEFINE_DECODER)
