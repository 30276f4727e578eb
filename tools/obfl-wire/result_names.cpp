// The decoders' result codes by name, for messages that say why a decode failed.
#include "record_json.hpp"

namespace obfl_wire {

std::string result_name(int result)
{
    switch (result) {
    case MIVO_NO_ERROR: return "MIVO_NO_ERROR";
    case MIVO_ERROR_GARBLED: return "MIVO_ERROR_GARBLED";
    case MIVO_ERROR_UNSUPPORTED: return "MIVO_ERROR_UNSUPPORTED";
    case MIVO_ERROR_WRONG_TYPE: return "MIVO_ERROR_WRONG_TYPE";
    case MIVO_ERROR_ALLOC_FAILED: return "MIVO_ERROR_ALLOC_FAILED";
    default: return "result " + std::to_string(result) + " from the entity identifier codec";
    }
}

} // namespace obfl_wire
