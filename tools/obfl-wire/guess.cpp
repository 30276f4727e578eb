#include "guess.hpp"

#include <algorithm>

#include "diagnose.hpp"
#include "nuvex.h"

namespace obfl_wire {

std::vector<candidate> guess(std::span<const uint8_t> bytes, bool shared, const json_options &options)
{
    std::vector<candidate> found;
    for (const message &m : messages()) {
        candidate c{&m, 0, 0, 0, 0, 0, 0, false, {}};
        if (m.decode(bytes, shared, options, c.record, &c.members_filled, &c.named_values) == MIVO_NO_ERROR) {
            const examination e = examine(bytes, m.schema());
            c.bytes_skipped = e.bytes_skipped;
            c.cut_off = e.cut_off;
            for (const note &n : e.notes) {
                ++c.warnings;
                c.misfits += n.misfit ? 1 : 0;
            }
            found.push_back(std::move(c));
        }
    }
    const auto evidence = [](const candidate &c) {
        return std::tuple(c.cut_off, c.misfits, -static_cast<long>(c.members_filled), c.warnings, c.bytes_skipped,
                          -static_cast<long>(c.named_values));
    };
    std::stable_sort(found.begin(), found.end(), [&](const candidate &a, const candidate &b) {
        if (evidence(a) != evidence(b)) {
            return evidence(a) < evidence(b);
        }
        return a.msg->member_count() < b.msg->member_count(); // the snugger fit
    });
    for (size_t i = 1; i < found.size(); ++i) {
        if (evidence(found[i]) == evidence(found[0])) {
            found[0].tie = found[i].tie = true;
        }
    }
    return found;
}

} // namespace obfl_wire
