// The member kinds that the field lists name (UINT32, REP_STRING, ...), once:
// what each is on the wire, in the C headers, in the .proto schema and in
// obfl-wire's JSON. The engine's descriptions, headergen and obfl-wire all
// read this list, so a kind cannot mean one thing to the codec and another
// to the headers or the tool.
#pragma once

#include <cstdint>

namespace nuvex {

// What a member's elements are on the wire and in memory.
enum class element {
    varint32, // uint32, int32 (its two's-complement pattern) and enumerations
    boolean,  // one byte, sent as stored, read back as 0 or 1
    varint64,
    string,   // NUL-terminated, always copied
    bytes,    // struct mivo_bytes, copied or shared with the caller
    external, // a record nested inside another, coded by another library
    message,  // a record nested inside another, coded by this engine
};

// How obfl-wire's JSON shows one element (a repeated member: an array of them).
enum class json_form {
    number,   // a JSON number
    constant, // the enumeration constant's name, or the number where none has it
    decimal,  // a decimal string: 64-bit values do not survive every JSON reader as numbers
    boolean,
    text,
    bytes,    // base64, or hex on request
    object,   // a nested record
};

// K(NAME, word, element, repeated, C type, .proto type, JSON form). The word
// is what the headers' member comments say. A null C type is the one the
// field list gives (an enumeration, a nested record); a null .proto type is
// the nested record's own message. EID is a record that another library
// codes. Enumerations are uint32 in .proto: a proto2 enum is closed and
// would set unnamed values aside as unknown fields.
#define NUVEX_KINDS(K)                                                                                   \
    K(UINT32, "uint32", varint32, false, "uint32_t", "uint32", number)                                   \
    K(ENUM, "enum", varint32, false, nullptr, "uint32", constant)                                        \
    K(BOOL, "bool", boolean, false, "mivo_bool_t", "bool", boolean)                                      \
    K(INT32, "int32", varint32, false, "int32_t", "int32", number)                                       \
    K(UINT64, "uint64", varint64, false, "uint64_t", "uint64", decimal)                                  \
    K(STRING, "string", string, false, "mivo_string_t", "string", text)                                  \
    K(BYTES, "bytes", bytes, false, "struct mivo_bytes", "bytes", bytes)                                 \
    K(EID, "eid", external, false, nullptr, nullptr, object)                                             \
    K(MESSAGE, "message", message, false, nullptr, nullptr, object)                                      \
    K(REP_UINT32, "repeated uint32", varint32, true, "uint32_t", "uint32", number)                       \
    K(REP_INT32, "repeated int32", varint32, true, "int32_t", "int32", number)                           \
    K(REP_UINT64, "repeated uint64", varint64, true, "uint64_t", "uint64", decimal)                      \
    K(REP_STRING, "repeated string", string, true, "mivo_string_t", "string", text)                      \
    K(REP_BYTES, "repeated bytes", bytes, true, "struct mivo_bytes", "bytes", bytes)                     \
    K(REP_MESSAGE, "repeated message", message, true, nullptr, nullptr, object)

// Numbers are varints (wire type 0); everything else is length-delimited (2).
constexpr uint32_t wire_type(element e)
{
    return e == element::varint32 || e == element::boolean || e == element::varint64 ? 0u : 2u;
}

struct kind_info {
    const char *name; // as the field lists spell it
    const char *word;
    element elem;
    bool repeated;
    const char *c_type;
    const char *proto_type;
    json_form json;
    constexpr uint32_t wire() const { return wire_type(elem); }
};

#define NUVEX_KIND_INFO(NAME, word, elem, repeated, c_type, proto_type, json) \
    kind_info{#NAME, word, element::elem, repeated, c_type, proto_type, json_form::json},
inline constexpr kind_info kinds[] = {NUVEX_KINDS(NUVEX_KIND_INFO)};
#undef NUVEX_KIND_INFO

// The kind a field list names, null if none.
constexpr const kind_info *find_kind(const char *name)
{
    for (const kind_info &k : kinds) {
        unsigned i = 0;
        while (k.name[i] != '\0' && k.name[i] == name[i]) {
            ++i;
        }
        if (k.name[i] == name[i]) {
            return &k;
        }
    }
    return nullptr;
}

// A field's key: field number * 8 + wire type, sent as a varint. The one
// place a key is made: the engine, headergen and obfl-wire all ask here.
constexpr uint32_t field_key(uint32_t number, element e) { return number << 3 | wire_type(e); }

// The key's varint bytes into out, lowest seven bits first; returns how many.
constexpr unsigned key_bytes(uint32_t key, uint8_t (&out)[5])
{
    unsigned n = 0;
    do {
        out[n++] = static_cast<uint8_t>((key & 0x7Fu) | (key > 0x7Fu ? 0x80u : 0u));
        key >>= 7;
    } while (key != 0);
    return n;
}

} // namespace nuvex
