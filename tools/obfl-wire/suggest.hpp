// "did you mean ...?" for a name that is not there: a message, a member or
// an enumeration constant mistyped.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace obfl_wire {

// "did you mean log_syslog?" (or "... a or b?") when one or two candidates
// are within a few edits of word, case aside; else empty.
std::string did_you_mean(std::string_view word, std::span<const std::string_view> candidates);

} // namespace obfl_wire
