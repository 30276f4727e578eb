// mivo_headergen: writes the four public C headers (mivo_tesk_eid_def.h,
// mivo_tesk_eid_init.h, mivo_obfl_mgr_def.h, mivo_obfl_mgr_init.h) from the
// one description of the records, the X-macro lists of the two catalogue
// headers. A reader of the installed headers then sees plain structs,
// enumerations, prototypes and static inline initialisers, and no macro of
// ours beyond the include guard and the export attribute.
//
//   mivo_headergen write EID_DIR OBFL_DIR   writes the headers into the two directories
//   mivo_headergen check EID_DIR OBFL_DIR   fails when a header there differs from what it would write
#include "mivo_obfl_mgr_catalogue.h"
#include "mivo_tesk_eid_catalogue.h"
#include "nuvex/kinds.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct member {
    std::string_view kind, name, ctype;
};
struct record {
    std::string_view name;
    std::vector<member> members;
};
struct constant {
    std::string_view name;
    long value;
};
struct enumeration {
    std::string_view name;
    std::vector<constant> constants;
};

#define HG_MEMBER(rec, KIND, name, ctype) member{#KIND, #name, #ctype},
#define HG_RECORD(rec, FIELDS) record{#rec, {FIELDS(HG_MEMBER, rec)}},
#define HG_CONSTANT(name, value) constant{#name, value},
#define HG_ENUM(ename, CONSTANTS) enumeration{#ename, {CONSTANTS(HG_CONSTANT)}},

const std::vector<enumeration> eid_enums{MIVO_TESK_EID_ENUMS(HG_ENUM)};
const std::vector<record> eid_records{MIVO_TESK_EID_RECORDS(HG_RECORD)};
const std::vector<enumeration> obfl_enums{MIVO_OBFL_MGR_ENUMS(HG_ENUM)};
const std::vector<record> obfl_records{MIVO_OBFL_MGR_CATALOGUE(HG_RECORD)};

// How an initialiser resets a member of each kind.
enum class reset { assign_zero, assign_null, clear_bytes, clear_memory, external_init, clear_array };

bool failed = false;

const nuvex::kind_info &info(const member &m)
{
    const std::string kind(m.kind);
    if (const nuvex::kind_info *k = nuvex::find_kind(kind.c_str())) {
        return *k;
    }
    std::fprintf(stderr, "mivo_headergen: member _%.*s has unknown kind %s\n", int(m.name.size()), m.name.data(),
                 kind.c_str());
    failed = true;
    return nuvex::kinds[0];
}

reset how(const nuvex::kind_info &k)
{
    if (k.repeated) {
        return reset::clear_array;
    }
    switch (k.elem) {
    case nuvex::element::string: return reset::assign_null;
    case nuvex::element::bytes: return reset::clear_bytes;
    case nuvex::element::external: return reset::external_init;
    // Enumerations and nested records (their type named by the field list):
    // memset rather than a cast of 0, which C++ callers' -Wold-style-cast would flag.
    default: return k.c_type == nullptr ? reset::clear_memory : reset::assign_zero;
    }
}

// The field key as it appears on the wire, in hexadecimal.
std::string key_bytes(unsigned number, const nuvex::kind_info &k)
{
    uint8_t bytes[5];
    std::string out;
    char byte[4];
    for (unsigned i = 0, n = nuvex::key_bytes(nuvex::field_key(number, k.elem), bytes); i < n; ++i) {
        std::snprintf(byte, sizeof byte, "%02X", bytes[i]);
        out += out.empty() ? "" : " ";
        out += byte;
    }
    return out;
}

std::string pad(std::string text, size_t width)
{
    text.resize(std::max(width, text.size() + 1), ' ');
    return text;
}

// ---- mivo_*_def.h ----

void write_enum(std::ostream &out, const enumeration &e)
{
    out << "#ifdef __cplusplus\n"
        << "enum " << e.name << " : uint32_t {\n"
        << "#else\n"
        << "enum " << e.name << " {\n"
        << "#endif\n";
    for (size_t i = 0; i < e.constants.size(); ++i) {
        out << "    " << e.constants[i].name << " = " << e.constants[i].value
            << (i + 1 < e.constants.size() ? ",\n" : "\n");
    }
    out << "};\n\n";
}

void write_struct(std::ostream &out, const record &r)
{
    struct line {
        std::string declaration, comment;
    };
    std::vector<line> lines;
    for (size_t i = 0; i < r.members.size(); ++i) {
        const member &m = r.members[i];
        const nuvex::kind_info &k = info(m);
        const auto number = static_cast<unsigned>(i + 1);
        std::string comment = "field " + std::to_string(number) + ", " + std::string(k.word) + ", key " +
                              key_bytes(number, k);
        if (k.repeated) {
            lines.push_back({"const " + std::string(m.ctype) + " *_" + std::string(m.name) + ";", comment});
            lines.push_back({"unsigned int _" + std::string(m.name) + "_count;", "elements of _" + std::string(m.name)});
        } else {
            lines.push_back({std::string(m.ctype) + " _" + std::string(m.name) + ";", comment});
        }
    }
    size_t width = 0;
    for (const auto &l : lines) {
        width = std::max(width, l.declaration.size() + 1);
    }
    out << "struct " << r.name << " {\n";
    for (const auto &l : lines) {
        out << "    " << pad(l.declaration, width) << "/* " << l.comment << " */\n";
    }
    out << "    /* presence flags, one per member */\n";
    for (const member &m : r.members) {
        out << "    mivo_bool_t _have_" << m.name << " : 1;\n";
    }
    out << "};\n\n";
}

void write_prototypes(std::ostream &out, std::string_view api, std::string_view rec)
{
    out << api << " size_t " << rec << "_encode_ext(const struct " << rec << " *source_p, uint8_t *dest_p,\n"
        << "    size_t dest_size, struct mivo_bytes *frags, unsigned int *frags_count_p, enum mivo_flags flags);\n"
        << api << " int " << rec << "_decode_ext(struct " << rec << " *dest_p, const uint8_t *source_p,\n"
        << "    size_t source_size, mivo_alloc_t *alloc_p, void *token, enum mivo_flags flags);\n"
        << api << " int " << rec << "_duplicate(struct " << rec << " *dest_p, const struct " << rec
        << " *source_p,\n"
        << "    mivo_alloc_t *alloc_p, void *token);\n"
        << api << " void " << rec << "_free_ext(struct " << rec << " *msg_p, mivo_free_t *free_p, void *token,\n"
        << "    enum mivo_flags flags);\n\n";
}

constexpr std::string_view generated_note =
    " * Generated by mivo_headergen (tools/headergen) from the description in\n"
    " * %s: change that and run\n"
    " * `cmake --build <build dir> --target regenerate_headers`, never this file.\n";

std::string note(std::string_view description)
{
    std::string text(generated_note);
    text.replace(text.find("%s"), 2, description);
    return text;
}

constexpr std::string_view enum_note =
    "/* Enumerations carry any 32-bit value, named or not. C++ is given their\n"
    " * 32-bit underlying type explicitly; a C compiler already picks a 32-bit\n"
    " * unsigned type for enumerations without negative constants, so records\n"
    " * lay out alike in both languages. */\n\n";

constexpr std::string_view extern_c_open = "#ifdef __cplusplus\nextern \"C\" {\n#endif\n\n";
constexpr std::string_view extern_c_close = "#ifdef __cplusplus\n}\n#endif\n\n";

std::string eid_def()
{
    std::ostringstream out;
    out << "/*\n"
           " * mivo_tesk_eid_def.h: the entity identifier, which rack, slot and instance\n"
           " * a message is about, with the chain of typed entities (tsi) that leads to\n"
           " * it. Most catalogue requests carry two of them; libmivo_tesk_eid codes them.\n"
           " *\n"
        << note("shared_pkg/common/catalogue/mivo_tesk_eid_catalogue.h")
        << " *\n"
           " * Wire form (field number = member position; a member is written when its\n"
           " * flag is set, so an identifier with every flag clear encodes to no bytes):\n"
           " *   mivo_tesk_eid_st             1..5 varints, 6 _tsi: one nested message per element\n"
           " *   mivo_tesk_entity_tsi_st      1 _type, 2 _sub_type (nested message), 3 _instance\n"
           " *   mivo_tesk_entity_subtype_un  1..12 varints, other .. cpu\n"
           " * Sub-type codes are opaque 32-bit numbers to this codec: the platform's\n"
           " * inventory owns their meaning, and any value travels unchanged.\n"
           " */\n"
           "#ifndef MIVO_TESK_EID_DEF_H\n#define MIVO_TESK_EID_DEF_H\n\n"
           "#include \"nuvex.h\"\n\n"
        << extern_c_open
        << "#define MIVO_TESK_EID_API __attribute__((visibility(\"default\")))\n\n"
        << enum_note;
    for (const auto &e : eid_enums) {
        write_enum(out, e);
    }
    for (const auto &r : eid_records) {
        write_struct(out, r);
    }
    out << "/* Encodes into dest_p[0..dest_size) and returns the full length, fitted or\n"
           " * not (dest_size 0 measures). Reports no fragments: *frags_count_p becomes 0. */\n"
           "MIVO_TESK_EID_API size_t mivo_tesk_eid_st_encode_ext(const struct mivo_tesk_eid_st *source_p,\n"
           "    uint8_t *dest_p, size_t dest_size, struct mivo_bytes *frags, unsigned int *frags_count_p,\n"
           "    enum mivo_flags flags);\n\n"
           "/* Decodes into the identifier as it stands, so that a second occurrence of an\n"
           " * identifier field merges into the first instead of losing what the first\n"
           " * allocated. Start from mivo_tesk_eid_st_init (the message decoders do). A\n"
           " * second run of _tsi is refused with MIVO_ERROR_GARBLED. */\n"
           "MIVO_TESK_EID_API int mivo_tesk_eid_st_decode_ext(struct mivo_tesk_eid_st *dest_p,\n"
           "    const uint8_t *source_p, size_t source_size, mivo_alloc_t *alloc_p, void *token,\n"
           "    enum mivo_flags flags);\n\n"
           "/* Deep copy: _tsi gets a fresh array. */\n"
           "MIVO_TESK_EID_API int mivo_tesk_eid_st_duplicate(struct mivo_tesk_eid_st *dest_p,\n"
           "    const struct mivo_tesk_eid_st *source_p, mivo_alloc_t *alloc_p, void *token);\n\n"
           "/* Hands back _tsi and resets it to null with a count of 0; accepts an\n"
           " * identifier at defaults, half decoded or already released. */\n"
           "MIVO_TESK_EID_API void mivo_tesk_eid_st_free_ext(struct mivo_tesk_eid_st *msg_p, mivo_free_t *free_p,\n"
           "    void *token, enum mivo_flags flags);\n\n"
        << extern_c_close << "#endif /* MIVO_TESK_EID_DEF_H */\n";
    return out.str();
}

std::string obfl_def()
{
    std::ostringstream out;
    out << "/*\n"
           " * mivo_obfl_mgr_def.h: the records, enumerations and "
        << 4 * obfl_records.size() << " entry points of the\n"
           " * OBFL manager's message codec.\n"
           " *\n"
        << note("system_pkg/obfl/catalogue/mivo_obfl_mgr_catalogue.h")
        << " *\n"
           " * A record holds its members in declaration order; a member's field number\n"
           " * is its position, and its comment gives number, kind and key bytes. A\n"
           " * repeated member is a pointer to its elements and their count. One\n"
           " * presence flag per member follows: only flagged members are encoded (an\n"
           " * identifier also when its encoding is not empty), a decode flags what it\n"
           " * fills. For every message m:\n"
           " *   mivo_m_encode_ext  writes dest_p[0..dest_size), returns the full length\n"
           " *                      (dest_size 0 measures); never fails, never allocates\n"
           " *   mivo_m_decode_ext  fills a record, allocating through alloc_p(size, token)\n"
           " *   mivo_m_duplicate   deep copy into fresh memory, byte strings included\n"
           " *   mivo_m_free_ext    hands back what a decode (with its flags) or a copy\n"
           " *                      (MIVO_FLAGS_NONE) allocated, failed or not\n"
           " * Decoders and duplicators return MIVO_NO_ERROR or a negative MIVO_ERROR_*.\n"
           " */\n"
           "#ifndef MIVO_OBFL_MGR_DEF_H\n#define MIVO_OBFL_MGR_DEF_H\n\n"
           "#include \"mivo_tesk_eid_def.h\"\n"
           "#include \"nuvex.h\"\n\n"
        << extern_c_open
        << "#define MIVO_OBFL_MGR_API __attribute__((visibility(\"default\")))\n\n"
        << enum_note;
    for (const auto &e : obfl_enums) {
        write_enum(out, e);
    }
    for (const auto &r : obfl_records) {
        write_struct(out, r);
        write_prototypes(out, "MIVO_OBFL_MGR_API", r.name);
    }
    out << extern_c_close << "#endif /* MIVO_OBFL_MGR_DEF_H */\n";
    return out.str();
}

// ---- mivo_*_init.h ----

void write_initialisers(std::ostream &out, const record &r)
{
    for (const member &m : r.members) {
        const std::string field = "dest_p->_" + std::string(m.name);
        out << "static inline void " << r.name << "_init_" << m.name << "(struct " << r.name << " *dest_p)\n{\n";
        switch (how(info(m))) {
        case reset::assign_zero: out << "    " << field << " = 0;\n"; break;
        case reset::assign_null: out << "    " << field << " = NULL;\n"; break;
        case reset::clear_bytes: out << "    " << field << ".data = NULL;\n    " << field << ".size = 0;\n"; break;
        case reset::clear_memory: out << "    memset(&" << field << ", 0, sizeof " << field << ");\n"; break;
        case reset::external_init: // the other library's own initialiser: struct X has X_init
            out << "    " << m.ctype.substr(m.ctype.find(' ') + 1) << "_init(&" << field << ");\n";
            break;
        case reset::clear_array: out << "    " << field << " = NULL;\n    " << field << "_count = 0;\n"; break;
        }
        out << "    dest_p->_have_" << m.name << " = 0;\n}\n\n";
    }
    out << "static inline void " << r.name << "_init(struct " << r.name << " *dest_p)\n{\n";
    for (const member &m : r.members) {
        out << "    " << r.name << "_init_" << m.name << "(dest_p);\n";
    }
    out << "}\n\n";
}

std::string init_header(std::string_view base, std::string_view description, std::string_view includes,
                        const std::vector<record> &records)
{
    std::string guard;
    for (char c : base) {
        guard += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    guard += "_INIT_H";
    std::ostringstream out;
    out << "/*\n * " << base << "_init.h: the initialisers, <record>_init and one\n"
        << " * <record>_init_<member> per member. Each sets its member to zero, false,\n"
           " * null or empty and clears its presence flag; <record>_init calls them in\n"
           " * member order. None releases anything: release an owned record first.\n"
           " *\n"
        << note(description) << " */\n"
        << "#ifndef " << guard << "\n#define " << guard << "\n\n"
        << "#include <string.h>\n\n"
        << includes << "\n"
        << extern_c_open;
    for (const auto &r : records) {
        write_initialisers(out, r);
    }
    out << extern_c_close << "#endif /* " << guard << " */\n";
    return out.str();
}

// ---- driver ----

struct output {
    std::string path, text;
};

std::vector<output> headers(const std::string &eid_dir, const std::string &obfl_dir)
{
    const std::string_view eid_description = "shared_pkg/common/catalogue/mivo_tesk_eid_catalogue.h";
    const std::string_view obfl_description = "system_pkg/obfl/catalogue/mivo_obfl_mgr_catalogue.h";
    return {
        {eid_dir + "/mivo_tesk_eid_def.h", eid_def()},
        {eid_dir + "/mivo_tesk_eid_init.h",
         init_header("mivo_tesk_eid", eid_description, "#include \"mivo_tesk_eid_def.h\"\n", eid_records)},
        {obfl_dir + "/mivo_obfl_mgr_def.h", obfl_def()},
        {obfl_dir + "/mivo_obfl_mgr_init.h",
         init_header("mivo_obfl_mgr", obfl_description,
                     "#include \"mivo_obfl_mgr_def.h\"\n#include \"mivo_tesk_eid_init.h\"\n", obfl_records)},
    };
}

// The first line where two texts part, counted from 1; 0 when they are equal.
size_t first_difference(const std::string &a, const std::string &b)
{
    size_t line = 1;
    for (size_t i = 0; i < a.size() || i < b.size(); ++i) {
        if (i >= a.size() || i >= b.size() || a[i] != b[i]) {
            return line;
        }
        line += a[i] == '\n';
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string mode = argc == 4 ? argv[1] : "";
    if (mode != "write" && mode != "check") {
        std::fprintf(stderr, "usage: mivo_headergen write|check EID_INCLUDE_DIR OBFL_INCLUDE_DIR\n");
        return 2;
    }
    const auto outputs = headers(argv[2], argv[3]);
    if (failed) {
        return 1;
    }
    int stale = 0;
    for (const auto &o : outputs) {
        if (mode == "write") {
            std::ofstream file(o.path, std::ios::binary);
            file << o.text;
            if (!file.flush()) {
                std::fprintf(stderr, "mivo_headergen: cannot write %s\n", o.path.c_str());
                return 1;
            }
            continue;
        }
        std::ifstream file(o.path, std::ios::binary);
        const std::string current{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        if (const size_t line = first_difference(current, o.text); line != 0) {
            std::fprintf(stderr, "%s:%zu: differs from what the description generates\n", o.path.c_str(), line);
            ++stale;
        }
    }
    if (stale != 0) {
        std::fprintf(stderr, "run `cmake --build <build dir> --target regenerate_headers` and commit the result\n");
    }
    return stale == 0 ? 0 : 1;
}
