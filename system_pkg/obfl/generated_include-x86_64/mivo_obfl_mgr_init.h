/* Initialisers of every catalogue record: mivo_m_init and mivo_m_init_<member>.
 * Each sets its members to zero, false, null or empty and clears their flags;
 * none releases anything. */
#ifndef MIVO_OBFL_MGR_INIT_H
#define MIVO_OBFL_MGR_INIT_H

#include "mivo_obfl_mgr_def.h"
#include "mivo_tesk_eid_init.h"

#ifdef __cplusplus
extern "C" {
#endif

MIVO_OBFL_MGR_CATALOGUE(NUVEX_DEFINE_INITIALISERS)

#ifdef __cplusplus
}
#endif

#endif /* MIVO_OBFL_MGR_INIT_H */
