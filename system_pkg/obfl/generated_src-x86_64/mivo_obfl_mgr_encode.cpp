// The 37 encoders: the engine's encoder instantiated once per record.
#include "mivo_obfl_mgr_description.hpp"
#include "nuvex/encode.hpp"

#define MIVO_DEFINE_ENCODER(rec, FIELDS)                                                                 \
    size_t rec##_encode_ext(const struct rec *source_p, uint8_t *dest_p, size_t dest_size,               \
                            struct mivo_bytes *frags, unsigned int *frags_count_p, enum mivo_flags flags) \
    {                                                                                                    \
        return nuvex::encode(*source_p, dest_p, dest_size, frags, frags_count_p, flags);                 \
    }

MIVO_OBFL_MGR_CATALOGUE(MIVO_DEFINE_ENCODER)
