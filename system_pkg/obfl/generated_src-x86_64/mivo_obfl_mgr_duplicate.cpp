// The 37 duplicators: the engine's deep copy instantiated once per record.
#include "mivo_obfl_mgr_description.hpp"
#include "nuvex/duplicate.hpp"

#define MIVO_DEFINE_DUPLICATOR(rec, FIELDS)                                                              \
    int rec##_duplicate(struct rec *dest_p, const struct rec *source_p, mivo_alloc_t *alloc_p, void *token) \
    {                                                                                                    \
        return nuvex::duplicate(*dest_p, *source_p, alloc_p, token);                                     \
    }

MIVO_OBFL_MGR_CATALOGUE(MIVO_DEFINE_DUPLICATOR)
