// W9, the line card's mix, as every contender codes it (line_card_mix.hpp
// holds the records).
#pragma once

namespace bench {

// Cross-checks every record of the mix in every contender, then registers
// W9_line_card/<operation>/<contender>; false if the cross-check fails.
bool add_line_card();

} // namespace bench
