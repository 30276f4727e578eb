#include "diff.hpp"

namespace obfl_wire {
namespace {

const json absent; // null: a member one side does not have

std::string shown(const json &v) { return v.is_null() ? "(absent)" : brief(v, 60); }

void compare(const json &a, const json &b, const std::string &path, std::vector<std::string> &out)
{
    if (a.is_object() && b.is_object()) {
        const auto in = [&](const json &o, const std::string &k) { return o.contains(k) ? o[k] : absent; };
        for (auto it = a.begin(); it != a.end(); ++it) {
            compare(it.value(), in(b, it.key()), path + (path.empty() ? "" : ".") + it.key(), out);
        }
        for (auto it = b.begin(); it != b.end(); ++it) {
            if (!a.contains(it.key())) {
                compare(absent, it.value(), path + (path.empty() ? "" : ".") + it.key(), out);
            }
        }
    } else if (a.is_array() && b.is_array()) {
        for (size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
            compare(i < a.size() ? a[i] : absent, i < b.size() ? b[i] : absent, path + "[" + std::to_string(i) + "]",
                    out);
        }
    } else if (a != b) {
        out.push_back(path + ": " + shown(a) + " -> " + shown(b));
    }
}

} // namespace

std::vector<std::string> differences(const json &a, const json &b)
{
    std::vector<std::string> out;
    compare(a, b, "", out);
    return out;
}

} // namespace obfl_wire
