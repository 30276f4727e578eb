// The entity identifier's records as the codec engine sees them, expanded
// from the same field lists as the public headers (catalogue/).
#pragma once

#include "mivo_tesk_eid_catalogue.h"
#include "mivo_tesk_eid_init.h"
#include "nuvex/description.hpp"

NUVEX_DESCRIBE_RECORD(mivo_tesk_entity_subtype_un, MIVO_TESK_FIELDS_entity_subtype_un)
NUVEX_DESCRIBE_RECORD(mivo_tesk_entity_tsi_st, MIVO_TESK_FIELDS_entity_tsi_st)
NUVEX_DESCRIBE_RECORD(mivo_tesk_eid_st, MIVO_TESK_FIELDS_eid_st)
