// The 37 release operations: the engine's release instantiated once per record.
#include "mivo_obfl_mgr_description.hpp"
#include "nuvex/release.hpp"

#define MIVO_DEFINE_RELEASE(rec, FIELDS)                                                                 \
    void rec##_free_ext(struct rec *msg_p, mivo_free_t *free_p, void *token, enum mivo_flags flags)      \
    {                                                                                                    \
        nuvex::release(*msg_p, free_p, token, flags);                                                    \
    }

MIVO_OBFL_MGR_CATALOGUE(MIVO_DEFINE_RELEASE)
