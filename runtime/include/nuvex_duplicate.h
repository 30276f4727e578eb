/* The one primitive the duplicators need beyond the shared types. */
#ifndef NUVEX_DUPLICATE_H
#define NUVEX_DUPLICATE_H

#include <string.h>

#include "nuvex.h"

#ifdef __cplusplus
extern "C" {
#endif

/* str must not be null: callers test for absence first. */
static inline size_t nuvex_strlen(mivo_string_t str)
{
    return strlen(str);
}

#ifdef __cplusplus
}
#endif

#endif /* NUVEX_DUPLICATE_H */
