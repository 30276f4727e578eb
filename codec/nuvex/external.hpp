// A record nested inside a catalogue record but coded by another library
// (the EID kind). The engine knows such a member only by this interface:
// whoever sees both descriptions specialises external_codec<T> with the
// other library's four operations, and the engine calls them as it would
// its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nuvex.h"

namespace nuvex {

// Specialised for each external record type T, with:
//   static size_t encode(const T &, uint8_t *dest, size_t dest_size, mivo_bytes *frags,
//                        unsigned *frags_count_p, mivo_flags);
//   static int decode(T &, const uint8_t *source, size_t size, mivo_alloc_t *, void *token, mivo_flags);
//   static int duplicate(T &dest, const T &source, mivo_alloc_t *, void *token);
//   static void release(T &, mivo_free_t *, void *token, mivo_flags);
// and reports_pieces, whether its encode can hand out fragments of its own.
template <class T>
struct external_codec;

} // namespace nuvex
