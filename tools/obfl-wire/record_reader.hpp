// JSON document -> record: every value checked against its member's kind
// and range, refused with the member's path and the reason.
#pragma once

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>

#include "names.hpp"
#include "record_json.hpp"
#include "suggest.hpp"

namespace obfl_wire {

using nuvex::element;

struct reader {
    arena &mem;
    const json_options &options;
    std::string &error;

    bool fail(const std::string &path, const std::string &problem)
    {
        // The path and the problem may quote the input's own text.
        error = one_line(path + ": " + problem, 200);
        return false;
    }

    template <class T>
    T *allocate(size_t count)
    {
        auto &block = mem.blocks.emplace_back(sizeof(T) * count + 1);
        return reinterpret_cast<T *>(block.data());
    }

    // Any JSON integer form -> sign and magnitude, then the member's range.
    template <class V>
    bool integer(const json &v, const std::string &path, V &out)
    {
        using limits = std::numeric_limits<std::conditional_t<std::is_enum_v<V>, uint32_t, V>>;
        bool negative = false;
        uint64_t magnitude = 0;
        // The value as the message shows it, made only for a message.
        const auto shown = [&] { return v.is_string() ? shortened(v.get<std::string>(), 40) : brief(v); };
        if (v.is_number_unsigned()) {
            magnitude = v.get<uint64_t>();
        } else if (v.is_number_integer()) {
            const int64_t i = v.get<int64_t>();
            negative = i < 0;
            magnitude = negative ? uint64_t{0} - static_cast<uint64_t>(i) : static_cast<uint64_t>(i);
        } else if (v.is_binary()) {
            // A number that is no 64-bit integer, kept as written (json_in.cpp).
            const auto &written = v.get_binary();
            const double d = std::strtod(std::string(written.begin(), written.end()).c_str(), nullptr);
            if (!std::isfinite(d) || d != std::floor(d)) {
                return fail(path, shown() + " is a fraction, not an integer");
            }
            negative = d < 0;
            if (std::fabs(d) >= 18446744073709551616.0) {
                return fail(path, shown() + " is out of range for " + scalar_name<V>());
            }
            magnitude = static_cast<uint64_t>(std::fabs(d));
        } else if (v.is_string()) {
            const std::string &s = v.get_ref<const std::string &>();
            size_t i = 0;
            negative = !s.empty() && s[0] == '-';
            i = negative ? 1 : 0;
            if (i == s.size()) {
                return fail(path, "'" + shown() + "' is not a number");
            }
            for (; i < s.size(); ++i) {
                if (s[i] < '0' || s[i] > '9') {
                    return fail(path, "'" + shown() + "' is not a number");
                }
                const unsigned digit = static_cast<unsigned>(s[i] - '0');
                if (magnitude > (UINT64_MAX - digit) / 10) {
                    return fail(path, shown() + " is out of range for " + scalar_name<V>());
                }
                magnitude = magnitude * 10 + digit;
            }
        } else {
            return fail(path, std::string("expected a number, got ") + type_of(v) + " " + shown());
        }
        const auto range = [&] {
            return shown() + " is out of range for " + scalar_name<V>() + " (" + std::to_string(limits::min()) +
                   " to " + std::to_string(limits::max()) + ")";
        };
        if constexpr (limits::is_signed) {
            if (negative ? magnitude > uint64_t{1} << 31 : magnitude > uint64_t{limits::max()}) {
                return fail(path, range());
            }
            out = static_cast<V>(negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude));
        } else {
            if (negative && magnitude != 0) {
                return fail(path, shown() + " is negative, but " + scalar_name<V>() + " is unsigned");
            }
            if (magnitude > uint64_t{limits::max()}) {
                return fail(path, range());
            }
            out = static_cast<V>(magnitude);
        }
        return true;
    }

    template <class V>
    bool enumeration(const json &v, const std::string &path, V &out)
    {
        if (!v.is_string() || (!v.get_ref<const std::string &>().empty() &&
                               v.get_ref<const std::string &>().find_first_not_of("-0123456789") == std::string::npos)) {
            return integer(v, path, out);
        }
        // A full name or a tail after an underscore ("CRITICAL"), case aside.
        const std::string &name = v.get_ref<const std::string &>();
        const auto same = [](std::string_view a, std::string_view b) {
            return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
                       return (x >= 'a' && x <= 'z' ? x - 32 : x) == (y >= 'a' && y <= 'z' ? y - 32 : y);
                   });
        };
        std::vector<const constant *> tails;
        for (const constant &c : enum_info<V>::constants) {
            const std::string_view full = c.name;
            if (same(full, name)) {
                out = static_cast<V>(c.value);
                return true;
            }
            if (full.size() > name.size() && same(full.substr(full.size() - name.size()), name) &&
                full[full.size() - name.size() - 1] == '_') {
                tails.push_back(&c);
            }
        }
        if (tails.size() == 1) {
            out = static_cast<V>(tails[0]->value);
            return true;
        }
        const std::string shown = "'" + shortened(name, 40) + "' ";
        if (tails.size() > 1) {
            std::string list;
            for (const constant *c : tails) {
                list += (list.empty() ? "" : ", ") + std::string(c->name);
            }
            return fail(path, shown + "is ambiguous in enum " + enum_info<V>::name + ": " + list);
        }
        std::vector<std::string_view> names; // full names and every tail, for a suggestion
        for (const constant &c : enum_info<V>::constants) {
            const std::string_view full = c.name;
            names.push_back(full);
            for (size_t at = full.find('_'); at != std::string_view::npos; at = full.find('_', at + 1)) {
                names.push_back(full.substr(at + 1));
            }
        }
        const std::string hint = did_you_mean(name, names);
        return fail(path, shown + "is no constant of enum " + enum_info<V>::name + (hint.empty() ? "" : "; " + hint));
    }

    template <class F, class V>
    bool element_value(const json &v, const std::string &path, V &out)
    {
        constexpr auto e = F::kind::elem;
        if constexpr (e == element::string) {
            if (!v.is_string()) {
                return fail(path, std::string("expected a string, got ") + type_of(v) + " " + brief(v));
            }
            const std::string &s = v.get_ref<const std::string &>();
            if (s.find('\0') != std::string::npos) {
                return fail(path, "a string member cannot hold a NUL character");
            }
            char *copy = allocate<char>(s.size());
            std::memcpy(copy, s.c_str(), s.size() + 1);
            out = copy;
            return true;
        } else if constexpr (e == element::bytes) {
            if (!v.is_string()) {
                return fail(path, std::string("expected a ") + (options.hex_bytes ? "hex" : "base64") +
                                      " string, got " + type_of(v) + " " + brief(v));
            }
            const std::string &s = v.get_ref<const std::string &>();
            std::vector<uint8_t> hex_bytes;
            auto &block = mem.blocks.emplace_back();
            if (options.hex_bytes ? !parse_hex(s, hex_bytes) : !from_base64(s, block)) {
                return fail(path, "'" + shortened(s, 40) + "' is not " + (options.hex_bytes ? "hex" : "base64"));
            }
            if (options.hex_bytes) {
                block.assign(hex_bytes.begin(), hex_bytes.end());
            }
            out.data = block.data();
            out.size = block.size();
            return true;
        } else if constexpr (e == element::external || e == element::message) {
            return record(v, path + ".", out);
        } else if constexpr (e == element::boolean) {
            if (!v.is_boolean()) {
                return fail(path, std::string("expected true or false, got ") + type_of(v) + " " + brief(v));
            }
            out = v.get<bool>() ? 1 : 0;
            return true;
        } else if constexpr (std::is_enum_v<V>) {
            return enumeration(v, path, out);
        } else {
            return integer(v, path, out);
        }
    }

    // Fills r (already initialised) from an object; prefix is the path of
    // r itself, ending in a dot, or empty at the top.
    template <class R>
    bool record(const json &in, const std::string &prefix, R &r)
    {
        if (!in.is_object()) {
            const std::string where = prefix.empty() ? std::string("message") : prefix.substr(0, prefix.size() - 1);
            return fail(where, std::string("expected an object, got ") + type_of(in));
        }
        // The key each member was given under: a second spelling of one member is refused.
        std::array<const std::string *, 32> given{};
        for (auto it = in.begin(); it != in.end(); ++it) {
            const std::string &key = it.key();
            const json &v = it.value();
            if (key == unknown_key) {
                continue; // written by the encoder after the record (unknown.hpp)
            }
            bool found = false;
            bool ok = true;
            nuvex::for_each_field<R>([&]<class F>() {
                static const std::string camel = camel_case(F::label);
                if (found || (key != F::label && key != camel)) {
                    return;
                }
                found = true;
                if (given[F::number] != nullptr) {
                    ok = fail(prefix + F::label, "given twice, as '" + *given[F::number] + "' and as '" + key + "'");
                    return;
                }
                given[F::number] = &key;
                if (!v.is_null()) {
                    ok = member<R, F>(v, prefix + F::label, r);
                }
            });
            if (!found) {
                std::vector<std::string_view> names;
                nuvex::for_each_field<R>([&]<class F>() { names.push_back(F::label); });
                const std::string hint = did_you_mean(key, names);
                return fail(prefix + shortened(key, 40),
                            "no such member" +
                                (prefix.empty() ? std::string() : " in " + prefix.substr(0, prefix.size() - 1)) +
                                (hint.empty() ? "" : "; " + hint));
            }
            if (!ok) {
                return false;
            }
        }
        return true;
    }

    template <class R, class F>
    bool member(const json &v, const std::string &path, R &r)
    {
        using E = element_t<R, F>;
        auto &value = F::value(r);
        if constexpr (F::kind::repeated) {
            if (!v.is_array()) {
                return fail(path, std::string("expected an array, got ") + type_of(v) + " " + brief(v));
            }
            E *list = allocate<E>(v.size());
            for (size_t i = 0; i < v.size(); ++i) {
                new (&list[i]) E{};
                if constexpr (F::kind::elem == element::message) {
                    nuvex::description<E>::init(&list[i]);
                }
                if (!element_value<F>(v[i], path + "[" + std::to_string(i) + "]", list[i])) {
                    return false;
                }
            }
            value = list;
            F::count(r) = static_cast<unsigned>(v.size());
        } else if (!element_value<F>(v, path, value)) {
            return false;
        }
        F::mark(r, true);
        return true;
    }
};

} // namespace obfl_wire
