// The catalogue as the codec engine sees it: one description per record,
// expanded from the same field lists as the public record declarations.
#pragma once

#include "mivo_obfl_mgr_catalogue.h"
#include "mivo_obfl_mgr_init.h"
#include "nuvex/description.hpp"

MIVO_OBFL_MGR_CATALOGUE(NUVEX_DESCRIBE_RECORD)
