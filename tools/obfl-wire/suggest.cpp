#include "suggest.hpp"

#include <algorithm>
#include <vector>

namespace obfl_wire {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Edits (insert, delete, replace, swap of neighbours) from a to b, case aside.
size_t distance(std::string_view a, std::string_view b)
{
    std::vector<size_t> before(b.size() + 1), row(b.size() + 1), next(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        next[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t same = lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1;
            next[j] = std::min({row[j] + 1, next[j - 1] + 1, row[j - 1] + same});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1])) {
                next[j] = std::min(next[j], before[j - 2] + 1);
            }
        }
        before.swap(row);
        row.swap(next);
    }
    return row[b.size()];
}

} // namespace

std::string did_you_mean(std::string_view word, std::span<const std::string_view> candidates)
{
    if (word.empty() || word.size() > 80) {
        return "";
    }
    const size_t allowed = std::max<size_t>(2, word.size() / 3);
    size_t best = allowed + 1;
    std::vector<std::string_view> found;
    for (std::string_view c : candidates) {
        const size_t d = distance(word, c);
        if (d < best) {
            best = d;
            found.clear();
        }
        if (d == best && std::find(found.begin(), found.end(), c) == found.end()) {
            found.push_back(c);
        }
    }
    if (found.empty() || found.size() > 2) {
        return "";
    }
    return "did you mean " + std::string(found[0]) + (found.size() == 2 ? " or " + std::string(found[1]) : "") + "?";
}

} // namespace obfl_wire
