// The catalogue as a proto2 schema, for protoc and libprotobuf.
#include "names.hpp"
#include "nuvex/kinds.hpp"
#include "record_json.hpp"

namespace obfl_wire {
namespace {

template <class R>
void proto_message(std::string &out)
{
    out += "\nmessage ";
    out += short_name(record_name<R>::value);
    out += " {\n";
    nuvex::for_each_field<R>([&]<class F>() {
        using E = element_t<R, F>;
        std::string type;
        if constexpr (F::kind::elem == nuvex::element::external || F::kind::elem == nuvex::element::message) {
            type = short_name(record_name<E>::value); // a nested record is a message of its own
        } else {
            type = nuvex::find_kind(F::kind_name)->proto_type;
        }
        const char *note = nullptr;
        if constexpr (std::is_enum_v<E>) {
            note = enum_info<E>::name;
        }
        out += std::string("  ") + (F::kind::repeated ? "repeated " : "optional ") + type + " " + F::label + " = " +
               std::to_string(F::number) + ";";
        if (note != nullptr) {
            out += std::string("  // ") + short_name(note);
        }
        out += "\n";
    });
    out += "}\n";
}

#define OBFL_WIRE_PROTO_ENUM(ename, CONSTANTS)                          \
    out += std::string("\nenum ") + short_name(#ename) + " {\n";        \
    for (const constant &c : enum_info<enum ename>::constants) {        \
        out += std::string("  ") + c.name + " = " + std::to_string(c.value) + ";\n"; \
    }                                                                   \
    out += "}\n";
#define OBFL_WIRE_PROTO_MESSAGE(rec, FIELDS) proto_message<struct rec>(out);

} // namespace

std::string proto_schema()
{
    std::string out =
        "// The OBFL manager's messages and the entity identifier, as written by\n"
        "// `obfl-wire proto`. Field numbers are the members' positions in their\n"
        "// records; repeated members are never packed (proto2's default).\n"
        "//\n"
        "// Members of an enumeration type are declared uint32, with the enumeration\n"
        "// named in a comment, and the enumerations are listed for reference only.\n"
        "// The codec carries any 32-bit value in such a member, named or not, but a\n"
        "// proto2 enum is closed: a parser would move an unnamed value out of the\n"
        "// member into the unknown fields, and `protoc --decode` would show it apart\n"
        "// from its member, by number only. As uint32 every value stays in its member.\n"
        "syntax = \"proto2\";\n"
        "\n"
        "package obfl;\n";
    MIVO_OBFL_MGR_ENUMS(OBFL_WIRE_PROTO_ENUM)
    MIVO_TESK_EID_ENUMS(OBFL_WIRE_PROTO_ENUM)
    MIVO_TESK_EID_RECORDS(OBFL_WIRE_PROTO_MESSAGE)
    MIVO_OBFL_MGR_CATALOGUE(OBFL_WIRE_PROTO_MESSAGE)
    return out;
}

} // namespace obfl_wire
