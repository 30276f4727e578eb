#include "summary.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "schema.hpp"

namespace obfl_wire {
namespace {

constexpr size_t values_kept = 64; // distinct values counted per member
constexpr size_t listed = 10;      // gaps, repeats and steps back listed

uint64_t unsigned_of(const json &v)
{
    if (v.is_string()) {
        return std::strtoull(v.get_ref<const std::string &>().c_str(), nullptr, 10); // a uint64 as decode writes it
    }
    return v.get<uint64_t>();
}

} // namespace

void summary::add(size_t bytes, const json &record)
{
    smallest_ = messages_ == 0 ? bytes : std::min<uint64_t>(smallest_, bytes);
    largest_ = std::max<uint64_t>(largest_, bytes);
    ++messages_;
    bytes_ += bytes;
    walk(record, schema_, "", true);
}

void summary::walk(const json &obj, const record_schema &schema, const std::string &prefix, bool top)
{
    for (const field_schema &f : schema.fields) {
        const auto it = obj.find(f.name);
        if (it == obj.end()) {
            continue;
        }
        const std::string path = prefix + f.name + (f.repeated ? "[]" : "");
        if (f.nested != nullptr) {
            if (f.repeated) {
                for (const json &e : *it) {
                    walk(e, *f.nested, path + ".", false);
                }
            } else {
                walk(*it, *f.nested, path + ".", false);
            }
            continue;
        }
        auto [at, added] = index_.try_emplace(path, members_.size());
        if (added) {
            members_.push_back({path, {}});
        }
        member &m = members_[at->second].second;
        const auto one = [&](const json &v) {
            ++m.count;
            if (f.constants.data() != nullptr || f.elem == nuvex::element::boolean) {
                const std::string key = v.is_string() ? v.get<std::string>() : v.dump();
                auto c = m.values.find(key);
                if (c != m.values.end()) {
                    ++c->second;
                } else if (m.values.size() < values_kept) {
                    m.values.emplace(key, 1);
                } else {
                    ++m.other_values;
                }
            } else if (f.scalar != nullptr) {
                const bool is_signed = f.int32;
                const int64_t s = is_signed ? v.get<int64_t>() : 0;
                const uint64_t u = is_signed ? 0 : unsigned_of(v);
                m.smin = !m.numbers || s < m.smin ? s : m.smin;
                m.smax = !m.numbers || s > m.smax ? s : m.smax;
                m.umin = !m.numbers || u < m.umin ? u : m.umin;
                m.umax = !m.numbers || u > m.umax ? u : m.umax;
                m.numbers = true;
                m.is_signed = is_signed;
                m.wide = f.elem == nuvex::element::varint64;
                const std::string shown = is_signed ? std::to_string(s) : std::to_string(u);
                m.first = m.count == 1 ? shown : m.first;
                m.last = shown;
                if (top && f.name == "seq_num") {
                    sequence &q = seq_;
                    if (q.started && u > q.previous + 1) {
                        ++q.gaps;
                        q.missing += u - q.previous - 1;
                        if (q.gap_list.size() < listed) {
                            q.gap_list.emplace_back(q.previous, u - q.previous - 1);
                        }
                    } else if (q.started && u == q.previous) {
                        ++q.repeats;
                        if (q.repeat_list.size() < listed) {
                            q.repeat_list.push_back(u);
                        }
                    } else if (q.started && u < q.previous) {
                        ++q.back;
                        if (q.back_list.size() < listed) {
                            q.back_list.push_back(u);
                        }
                    }
                    q.started = true;
                    q.previous = u;
                }
            }
        };
        if (f.repeated) {
            for (const json &e : *it) {
                one(e);
            }
        } else {
            one(*it);
        }
    }
}

json summary::document() const
{
    json d;
    d["messages"] = messages_;
    d["bytes"] = bytes_;
    d["smallest"] = smallest_;
    d["largest"] = largest_;
    d["warnings"] = warnings_;
    d["failed"] = failed_;
    json members = json::object();
    for (const auto &[path, m] : members_) {
        json j;
        j["count"] = m.count;
        if (!m.values.empty()) {
            std::vector<std::pair<std::string, uint64_t>> sorted(m.values.begin(), m.values.end());
            std::stable_sort(sorted.begin(), sorted.end(), [](const auto &a, const auto &b) { return a.second > b.second; });
            json values = json::object();
            for (const auto &[k, n] : sorted) {
                values[k] = n;
            }
            j["values"] = values;
            if (m.other_values != 0) {
                j["other_values"] = m.other_values;
            }
        } else if (m.numbers) {
            // Numbers as decode writes them: 64-bit values as decimal strings.
            const bool wide = m.wide;
            const auto number = [&](const std::string &s) { return wide ? json(s) : json::parse(s); };
            j["min"] = number(m.is_signed ? std::to_string(m.smin) : std::to_string(m.umin));
            j["max"] = number(m.is_signed ? std::to_string(m.smax) : std::to_string(m.umax));
            j["first"] = number(m.first);
            j["last"] = number(m.last);
        }
        if (path == "seq_num") {
            json gaps = json::array(), repeats = json::array(), back = json::array();
            for (const auto &[after, missing] : seq_.gap_list) {
                gaps.push_back(json{{"after", after}, {"missing", missing}});
            }
            for (uint64_t v : seq_.repeat_list) {
                repeats.push_back(v);
            }
            for (uint64_t v : seq_.back_list) {
                back.push_back(v);
            }
            j["gaps"] = seq_.gaps;
            j["missing"] = seq_.missing;
            j["repeats"] = seq_.repeats;
            j["steps_back"] = seq_.back;
            j["first_gaps"] = gaps;
            j["first_repeats"] = repeats;
            j["first_steps_back"] = back;
        }
        members[path] = j;
    }
    d["members"] = members;
    return d;
}

std::string summary::json_text(bool pretty) const { return document().dump(pretty ? 2 : -1) + "\n"; }

std::string summary::text() const
{
    size_t width = 8;
    for (const auto &[path, m] : members_) {
        width = std::max(width, path.size());
    }
    char line[160];
    std::snprintf(line, sizeof line, "%-*s %llu, %llu bytes (%llu to %llu each)\n", static_cast<int>(width), "messages",
                  static_cast<unsigned long long>(messages_), static_cast<unsigned long long>(bytes_),
                  static_cast<unsigned long long>(smallest_), static_cast<unsigned long long>(largest_));
    std::string out = messages_ == 0 ? "messages 0\n" : line;
    if (warnings_ != 0) {
        out += "warnings " + std::to_string(warnings_) + "\n";
    }
    if (failed_ != 0) {
        out += "failed   " + std::to_string(failed_) + " (not decoded, not counted above)\n";
    }
    const json d = document();
    for (const auto &[path, m] : members_) {
        const json &j = d["members"][path];
        std::string what;
        if (j.contains("values")) {
            for (auto it = j["values"].begin(); it != j["values"].end(); ++it) {
                what += (what.empty() ? "" : ", ") + it.key() + ": " + it.value().dump();
            }
            if (j.contains("other_values")) {
                what += ", other values: " + j["other_values"].dump();
            }
        } else if (j.contains("min")) {
            const auto plain = [](const json &v) { return v.is_string() ? v.get<std::string>() : v.dump(); };
            what = plain(j["min"]) + " to " + plain(j["max"]);
            if (path == "timestamp") {
                what += "; first " + plain(j["first"]) + ", last " + plain(j["last"]);
            }
        }
        if (path == "seq_num") {
            // Gaps as the ranges of numbers missing: "2 gaps, 9 missing: 4-6, 6-11".
            what += "; " + (seq_.gaps == 0 ? std::string("no gaps")
                                           : std::to_string(seq_.gaps) + (seq_.gaps == 1 ? " gap, " : " gaps, ") +
                                                 std::to_string(seq_.missing) + " missing");
            for (size_t i = 0; i < seq_.gap_list.size(); ++i) {
                const auto [after, missing] = seq_.gap_list[i];
                // Appended piece by piece: GCC 12 at -O3 sees a false overlap in "-" + to_string().
                what += i == 0 ? ": " : ", ";
                what += std::to_string(after + 1);
                if (missing != 1) {
                    what += '-';
                    what += std::to_string(after + missing);
                }
            }
            what += seq_.gaps > seq_.gap_list.size() ? ", ..." : "";
            const auto list = [&](uint64_t n, const std::vector<uint64_t> &l, const char *one, const char *many) {
                std::string s = n == 0 ? std::string("no ") + many : std::to_string(n) + " " + (n == 1 ? one : many);
                for (size_t i = 0; i < l.size(); ++i) {
                    s += (i == 0 ? " (" : ", ") + std::to_string(l[i]);
                }
                return s + (n > l.size() ? ", ...)" : n != 0 ? ")" : "");
            };
            what += "; " + list(seq_.repeats, seq_.repeat_list, "repeat", "repeats");
            if (seq_.back != 0) {
                what += "; " + list(seq_.back, seq_.back_list, "step back", "steps back");
            }
        }
        std::snprintf(line, sizeof line, "%-*s %llu", static_cast<int>(width), path.c_str(),
                      static_cast<unsigned long long>(m.count));
        out += line;
        out += what.empty() ? "\n" : "  " + what + "\n";
    }
    return out;
}

} // namespace obfl_wire
