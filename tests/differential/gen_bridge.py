#!/usr/bin/env python3
"""Writes pb_bridge.cpp and pb_bridge_records.hpp: fill() and read() between
the libprotobuf classes of obfl_catalogue.proto and our C records, one
overload pair per message, plus the type-erased table of pb_bridge.hpp.

The member names, kinds and order come from the .proto alone, never from the
C catalogue, so a record whose layout drifted away from the wire form fails
to compile here or to compare in the tests.

usage: gen_bridge.py obfl_catalogue.proto pb_bridge.cpp pb_bridge_records.hpp
"""
import re
import sys

SCALARS = {"uint32": "uint32_t", "int32": "int32_t", "uint64": "uint64_t", "bool": "bool"}
EID = "tesk_eid_st"
# Messages that describe the entity identifier rather than a catalogue record.
EID_PREFIX = "tesk_"


def parse(text):
    text = re.sub(r"//[^\n]*", "", text)
    package = re.search(r"^\s*package\s+([\w.]+)\s*;", text, re.M).group(1)
    messages = []
    for name, body in re.findall(r"message\s+(\w+)\s*\{([^}]*)\}", text):
        fields = []
        for label, ftype, fname, number in re.findall(
            r"(optional|repeated)\s+(\w+)\s+(\w+)\s*=\s*(\d+)\s*;", body
        ):
            fields.append(
                {"repeated": label == "repeated", "type": ftype, "name": fname, "number": int(number)}
            )
        numbers = [f["number"] for f in fields]
        # Our records number members by position: a gap or a shuffle in the
        # .proto would be a typo, not a design.
        if numbers != list(range(1, len(fields) + 1)):
            sys.exit(f"{name}: field numbers must be 1..N in order, got {numbers}")
        messages.append({"name": name, "fields": fields})
    return package, messages


def fill_field(f, known):
    """C++ that sets one member of r from m, or leaves noise when absent."""
    c, acc, t = "_" + f["name"], f["name"].lower(), f["type"]
    flag = "_have_" + f["name"]
    if f["repeated"]:
        if t in SCALARS:
            elem = lambda i: f"m.{acc}({i})"
            build = f"p[i] = static_cast<T>({elem('i')});"
        elif t == "string":
            build = f"p[i] = a.string(m.{acc}(i));"
        elif t == "bytes":
            build = f"p[i] = a.bytes(m.{acc}(i));"
        elif t in known:
            build = "fill(m.{acc}(i), p[i], a, n);".format(acc=acc)
        else:
            sys.exit(f"unknown type {t}")
        return f"""    {{
        using T = std::remove_const_t<std::remove_pointer_t<decltype(r.{c})>>;
        if (m.{acc}_size() > 0) {{
            const int count = m.{acc}_size();
            T *p = a.array<T>(count);
            for (int i = 0; i < count; ++i) {{
                {build}
            }}
            r.{c} = p;
            r.{c}_count = static_cast<unsigned>(count);
            r.{flag} = 1;
        }} else if (n) {{
            switch (n->pick()) {{
            case absent_noise::value_without_flag: r.{c} = a.array<T>(1); r.{c}_count = 1; break;
            case absent_noise::flag_without_value: r.{flag} = 1; r.{c} = n->coin() ? a.array<T>(1) : nullptr; break;
            case absent_noise::clean: break;
            }}
        }}
    }}
"""
    if t in SCALARS:
        return f"""    if (m.has_{acc}()) {{
        r.{c} = static_cast<decltype(r.{c})>(m.{acc}());
        r.{flag} = 1;
    }} else if (n && n->pick() == absent_noise::value_without_flag) {{
        r.{c} = static_cast<decltype(r.{c})>(n->junk());
    }}
"""
    if t == "string":
        return f"""    if (m.has_{acc}()) {{
        r.{c} = a.string(m.{acc}());
        r.{flag} = 1;
    }} else if (n) {{
        switch (n->pick()) {{
        case absent_noise::value_without_flag: r.{c} = a.string("left over"); break;
        case absent_noise::flag_without_value: r.{flag} = 1; break;
        case absent_noise::clean: break;
        }}
    }}
"""
    if t == "bytes":
        # A flagged byte string is present even when empty, so the only
        # absent leftover is contents without the flag.
        return f"""    if (m.has_{acc}()) {{
        r.{c} = a.bytes(m.{acc}());
        r.{flag} = 1;
    }} else if (n && n->pick() == absent_noise::value_without_flag) {{
        r.{c} = a.bytes(std::string("left\\0over", 9));
    }}
"""
    if t in known:
        # An absent nested message may still hold unflagged leftovers, which
        # must keep its encoding empty.
        return f"""    if (m.has_{acc}()) {{
        fill(m.{acc}(), r.{c}, a, n);
        r.{flag} = 1;
    }} else if (n) {{
        fill(pb::{t}::default_instance(), r.{c}, a, n);
    }}
"""
    sys.exit(f"unknown type {t}")


def read_field(f, known):
    c, acc, t = "_" + f["name"], f["name"].lower(), f["type"]
    flag = "_have_" + f["name"]
    if f["repeated"]:
        if t in SCALARS:
            # The encoder sends flagged numeric lists without testing the pointer.
            return f"""    if (r.{flag}) {{
        for (unsigned i = 0; i < r.{c}_count; ++i) m.add_{acc}(static_cast<{SCALARS[t]}>(r.{c}[i]));
    }}
"""
        if t == "string":
            add = f"m.add_{acc}(r.{c}[i]);"
        elif t == "bytes":
            add = f"m.add_{acc}(as_string(r.{c}[i]));"
        else:
            add = f"read(r.{c}[i], *m.add_{acc}());"
        return f"""    if (r.{flag} && r.{c}) {{
        for (unsigned i = 0; i < r.{c}_count; ++i) {add}
    }}
"""
    if t == "bool":
        return f"    if (r.{flag}) m.set_{acc}(r.{c} != 0);\n"
    if t in SCALARS:
        return f"    if (r.{flag}) m.set_{acc}(static_cast<{SCALARS[t]}>(r.{c}));\n"
    if t == "string":
        return f"    if (r.{flag} && r.{c}) m.set_{acc}(r.{c});\n"
    if t == "bytes":
        return f"    if (r.{flag}) m.set_{acc}(as_string(r.{c}));\n"
    if t == EID:
        # An identifier goes out when flagged or when it has anything to say.
        return f"""    {{
        pb::{t} nested;
        read(r.{c}, nested);
        if (r.{flag} || nested.ByteSizeLong() != 0) *m.mutable_{acc}() = nested;
    }}
"""
    if t in known:
        return f"    if (r.{flag}) read(r.{c}, *m.mutable_{acc}());\n"
    sys.exit(f"unknown type {t}")


def main():
    proto_path, out_cpp, out_hpp = sys.argv[1], sys.argv[2], sys.argv[3]
    with open(proto_path, encoding="utf-8") as fh:
        package, messages = parse(fh.read())
    known = {m["name"] for m in messages}
    pb_ns = "::" + package.replace(".", "::")

    hpp = [
        "// Generated by gen_bridge.py from obfl_catalogue.proto; do not edit.",
        "// fill(): builds our record from a message (initialising it first is the",
        "// caller's business; strings and arrays point into the arena). read():",
        "// adds to the message what the record holds, by the encoder's presence rules.",
        "#pragma once",
        "",
        '#include "mivo_obfl_mgr_def.h"',
        '#include "obfl_catalogue.pb.h"',
        '#include "pb_bridge.hpp"',
        "",
        "namespace mivo_test {",
        "",
    ]
    for msg in messages:
        name = msg["name"]
        hpp.append(f"void fill(const {pb_ns}::{name} &m, mivo_{name} &r, arena &a, absent_noise *n = nullptr);")
        hpp.append(f"void read(const mivo_{name} &r, {pb_ns}::{name} &m);")
    hpp += ["", "} // namespace mivo_test"]

    out = [
        "// Generated by gen_bridge.py from obfl_catalogue.proto; do not edit.",
        "#include <cstring>",
        "#include <string>",
        "#include <type_traits>",
        "",
        '#include "mivo_obfl_mgr_init.h"',
        '#include "pb_bridge_records.hpp"',
        "",
        "namespace mivo_test {",
        "namespace {",
        "",
        f"namespace pb = {pb_ns};",
        "",
        "std::string as_string(const mivo_bytes &b)",
        "{",
        "    return b.size == 0 ? std::string() : std::string(reinterpret_cast<const char *>(b.data), b.size);",
        "}",
        "",
        "} // namespace",
        "",
    ]
    # Nested messages come first in the .proto, and every overload is declared
    # in the header, so file order is fine.
    for msg in messages:
        name = msg["name"]
        out.append(f"void fill(const pb::{name} &m, mivo_{name} &r, [[maybe_unused]] arena &a, absent_noise *n)")
        out.append("{")
        out.extend(fill_field(f, known) for f in msg["fields"])
        out.append("}")
        out.append("")
        out.append(f"void read(const mivo_{name} &r, pb::{name} &m)")
        out.append("{")
        out.extend(read_field(f, known) for f in msg["fields"])
        out.append("}")
        out.append("")
    records = [m for m in messages if not m["name"].startswith(EID_PREFIX)]
    out.append("namespace {")
    out.append("")
    out.append("const bridge_ops bridges[] = {")
    for msg in records:
        name = msg["name"]
        out.append(f"""    {{"{name}", sizeof(mivo_{name}), {len(msg["fields"])},
     [](const google::protobuf::Message &m, void *r, arena &a, absent_noise *n) {{
         auto &rec = *static_cast<mivo_{name} *>(r);
         mivo_{name}_init(&rec);
         fill(dynamic_cast<const pb::{name} &>(m), rec, a, n);
     }},
     [](const void *r, google::protobuf::Message &m) {{
         auto &out = dynamic_cast<pb::{name} &>(m);
         out.Clear();
         read(*static_cast<const mivo_{name} *>(r), out);
     }}}},""")
    out.append("};")
    out.append("")
    out.append("} // namespace")
    out.append("")
    out.append("std::span<const bridge_ops> bridged_messages() { return bridges; }")
    out.append("")
    out.append("} // namespace mivo_test")
    for path, lines in ((out_cpp, out), (out_hpp, hpp)):
        with open(path, "w", encoding="utf-8") as fh:
            fh.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
