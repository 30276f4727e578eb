/* Initialisers of the entity identifier: every member zero, null or empty,
 * every presence flag clear. */
#ifndef MIVO_TESK_EID_INIT_H
#define MIVO_TESK_EID_INIT_H

#include "mivo_tesk_eid_def.h"

#ifdef __cplusplus
extern "C" {
#endif

NUVEX_DEFINE_INITIALISERS(mivo_tesk_entity_subtype_un, MIVO_TESK_FIELDS_entity_subtype_un)
NUVEX_DEFINE_INITIALISERS(mivo_tesk_entity_tsi_st, MIVO_TESK_FIELDS_entity_tsi_st)
NUVEX_DEFINE_INITIALISERS(mivo_tesk_eid_st, MIVO_TESK_FIELDS_eid_st)

#ifdef __cplusplus
}
#endif

#endif /* MIVO_TESK_EID_INIT_H */
