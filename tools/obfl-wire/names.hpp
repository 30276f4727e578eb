// Names of records, members and enumeration constants, taken from the
// catalogue's own lists so that none is written twice.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "mivo_obfl_mgr_description.hpp"
#include "mivo_tesk_eid_description.hpp"

namespace obfl_wire {

struct constant {
    const char *name;
    uint32_t value;
};

// Every enumeration type with its constants, keyed by the member's C type.
template <class E>
struct enum_info;
#define OBFL_WIRE_CONSTANT(cname, value) constant{#cname, value},
#define OBFL_WIRE_ENUM(ename, CONSTANTS)                                          \
    template <>                                                                   \
    struct enum_info<enum ename> {                                                \
        static constexpr const char *name = #ename;                               \
        static constexpr constant constants[] = {CONSTANTS(OBFL_WIRE_CONSTANT)}; \
    };
MIVO_OBFL_MGR_ENUMS(OBFL_WIRE_ENUM)
MIVO_TESK_EID_ENUMS(OBFL_WIRE_ENUM)
#undef OBFL_WIRE_ENUM
#undef OBFL_WIRE_CONSTANT

// Record type -> its C name.
template <class R>
struct record_name;
#define OBFL_WIRE_RECORD_NAME(rec, FIELDS)         \
    template <>                                    \
    struct record_name<struct rec> {               \
        static constexpr const char *value = #rec; \
    };
MIVO_OBFL_MGR_CATALOGUE(OBFL_WIRE_RECORD_NAME)
MIVO_TESK_EID_RECORDS(OBFL_WIRE_RECORD_NAME)
#undef OBFL_WIRE_RECORD_NAME

constexpr const char *short_name(const char *c_name)
{
    return std::string_view(c_name).starts_with("mivo_") ? c_name + 5 : c_name;
}

// The JSON mapping's name of a member: "client_id" -> "clientId".
inline std::string camel_case(std::string_view name)
{
    std::string out;
    bool upper = false;
    for (char c : name) {
        if (c == '_') {
            upper = true;
        } else {
            out += upper && c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
            upper = false;
        }
    }
    return out;
}

// The member's type as stored, and the type of one element of it.
template <class R, class F>
using member_t = std::remove_cvref_t<decltype(F::value(std::declval<R &>()))>;
template <class R, class F>
using element_t = std::conditional_t<F::kind::repeated, std::remove_const_t<std::remove_pointer_t<member_t<R, F>>>,
                                     member_t<R, F>>;

template <class V>
constexpr const char *scalar_name()
{
    if constexpr (std::is_enum_v<V>) {
        return "enum";
    } else if constexpr (std::is_same_v<V, int32_t>) {
        return "int32";
    } else if constexpr (std::is_same_v<V, uint64_t>) {
        return "uint64";
    } else {
        return "uint32";
    }
}

} // namespace obfl_wire
