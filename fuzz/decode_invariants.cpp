// What must hold for any input, trusted or not:
//  - decoding returns a defined result code, and -4 exactly when an
//    allocation failed (or no allocator was given);
//  - whatever a decode allocated, failed or not, is handed back by the
//    release with the decode's flags: nothing stays live, nothing is released
//    twice or released that the allocator did not hand out; a second release
//    hands back nothing;
//  - a successful decode re-encodes: measuring and writing agree, the
//    fragment list concatenates to the same bytes, and decoding those bytes
//    again gives a record that encodes identically (a fixed point);
//  - a copy encodes like its source, shares nothing with it (it survives the
//    source's release and the overwriting of the input) and is released
//    completely, also when one of its allocations fails.
// Reads and writes outside the buffers are left to AddressSanitizer.
#include "decode_invariants.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "counting_allocator.hpp"

namespace mivo_fuzz {
namespace {

using mivo_catalogue::entry;
using mivo_test::counting_allocator;
using bytes = std::vector<uint8_t>;

struct violated {
    std::string what;
};

void require(bool ok, const char *what)
{
    if (!ok) {
        throw violated{what};
    }
}

// The same, naming the encoding path that broke it.
void require(bool ok, const char *path, const char *what)
{
    if (!ok) {
        throw violated{std::string(path) + ": " + what};
    }
}

bytes encode(const entry &m, const void *record)
{
    bytes out(m.encode(record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE));
    require(m.encode(record, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE) == out.size(),
            "measuring and writing disagree");
    return out;
}

// The identifier codec lists no pieces by design: its bytes ride in the
// enclosing message's inline piece.
bool lists_pieces(const entry &m) { return &m != &mivo_catalogue::entries().back(); }

// The pieces of a gathered encoding into buffer[0..size): none empty, those
// in the buffer one after the other from its start and covering it, others
// (byte strings) only when shared, all together the plain encoding.
void check_pieces(std::span<const mivo_bytes> pieces, const uint8_t *buffer, size_t size, mivo_flags flags,
                  const bytes &plain)
{
    size_t in_buffer = 0;
    bytes joined;
    for (const mivo_bytes &p : pieces) {
        require(p.size != 0, "an empty piece");
        if (p.data >= buffer && p.data < buffer + size) {
            require(p.data == buffer + in_buffer, "pieces of the buffer out of order");
            in_buffer += p.size;
        } else {
            require(flags == MIVO_FLAG_SHARED, "a piece outside the buffer without sharing");
        }
        joined.insert(joined.end(), p.data, p.data + p.size);
    }
    require(in_buffer == size, "the pieces do not cover the buffer");
    require(joined == plain, "pieces do not concatenate to the encoding");
}

// Gathers the encoding into a buffer of the counted size and checks its
// pieces; returns the buffer and the pieces.
std::pair<bytes, std::vector<mivo_bytes>> check_fragments(const entry &m, const void *record, const bytes &plain,
                                                          mivo_flags flags)
{
    unsigned needed = 0;
    bytes buffer(m.encode(record, nullptr, 0, nullptr, &needed, flags));
    std::vector<mivo_bytes> pieces(needed);
    unsigned count = needed;
    require(m.encode(record, buffer.data(), buffer.size(), pieces.data(), &count, flags) == buffer.size() &&
                count == needed,
            "counting and gathering disagree");
    require(lists_pieces(m) || needed == 0, "the identifier lists pieces of its own");
    if (lists_pieces(m)) {
        check_pieces(pieces, buffer.data(), buffer.size(), flags, plain);
    }
    return {std::move(buffer), std::move(pieces)};
}

void check_released(const counting_allocator &a, const char *what)
{
    require(a.live() == 0, what);
    require(a.misuses() == 0, "release misused the allocator");
}

// -4 exactly when the failing allocation was asked for; without an
// allocator, exactly when the same call with one allocated anything.
void check_alloc_result(int rc, size_t fail_at, size_t attempts, size_t clean_attempts, const char *what)
{
    const bool expected = fail_at == no_allocator ? clean_attempts > 0 : fail_at != 0 && attempts >= fail_at;
    require((rc == MIVO_ERROR_ALLOC_FAILED) == expected, what);
}

mivo_alloc_t *allocator_for(size_t fail_at)
{
    return fail_at == no_allocator ? nullptr : &counting_allocator::allocate;
}

void check(const input_case &c, std::span<const uint8_t> input)
{
    const entry &m = mivo_catalogue::entries()[c.target % mivo_catalogue::entry_count];
    // A copy of the wire bytes of exactly their size, so ASan sees any read
    // past the end; the copy test overwrites it later.
    bytes wire(input.begin(), input.end());

    counting_allocator a;
    a.fail_at(c.decode_fail_at);
    mivo_catalogue::record_storage record;
    const int rc = m.decode(&record, wire.data(), wire.size(), allocator_for(c.decode_fail_at), &a, c.flags);
    require(rc <= MIVO_NO_ERROR && rc >= MIVO_ERROR_ALLOC_FAILED, "decode returned an undefined code");
    if (c.decode_fail_at != no_allocator) {
        check_alloc_result(rc, c.decode_fail_at, a.attempts(), 0, "decode misreported an allocation failure");
    }

    // A partly decoded record is still a consistent one (a failed member
    // holds nothing, a half-filled list keeps its flag clear), so it must
    // encode and copy like any other.
    const bytes plain = encode(m, &record);
    if (rc == MIVO_NO_ERROR) {
        check_fragments(m, &record, plain, MIVO_FLAGS_NONE);
        check_fragments(m, &record, plain, MIVO_FLAG_SHARED);
        counting_allocator again;
        mivo_catalogue::record_storage second;
        require(m.decode(&second, plain.data(), plain.size(), &counting_allocator::allocate, &again,
                         MIVO_FLAGS_NONE) == MIVO_NO_ERROR,
                "our own encoding does not decode");
        require(encode(m, &second) == plain, "decode and encode are not a fixed point");
        m.release(&second, &counting_allocator::release, &again, MIVO_FLAGS_NONE);
        check_released(again, "a re-decoded record leaks");
    }

    counting_allocator copy_memory;
    mivo_catalogue::record_storage copy;
    require(m.duplicate(&copy, &record, &counting_allocator::allocate, &copy_memory) == MIVO_NO_ERROR,
            "a copy failed without a failing allocation");
    if (c.copy_fail_at != 0) {
        counting_allocator failing;
        failing.fail_at(c.copy_fail_at);
        mivo_catalogue::record_storage partial;
        const int copy_rc = m.duplicate(&partial, &record, allocator_for(c.copy_fail_at), &failing);
        require(copy_rc == MIVO_NO_ERROR || copy_rc == MIVO_ERROR_ALLOC_FAILED, "duplicate returned an undefined code");
        check_alloc_result(copy_rc, c.copy_fail_at, failing.attempts(), copy_memory.attempts(),
                           "duplicate misreported an allocation failure");
        require(copy_rc != MIVO_NO_ERROR || encode(m, &partial) == plain, "a copy encodes differently from its source");
        m.release(&partial, &counting_allocator::release, &failing, MIVO_FLAGS_NONE);
        check_released(failing, "a released copy still holds memory");
    }

    m.release(&record, &counting_allocator::release, &a, c.flags);
    check_released(a, rc == MIVO_NO_ERROR ? "a decoded record leaks" : "a failed decode leaks");
    const size_t released = a.releases();
    m.release(&record, &counting_allocator::release, &a, c.flags);
    require(a.releases() == released && a.misuses() == 0, "a second release handed memory back again");

    std::fill(wire.begin(), wire.end(), uint8_t{0xA5});
    require(encode(m, &copy) == plain, "a copy changed with its source's release or input");
    m.release(&copy, &counting_allocator::release, &copy_memory, MIVO_FLAGS_NONE);
    check_released(copy_memory, "a released copy still holds memory");
}

constexpr uint8_t canary = 0xA5;

// The ways a caller encodes, each held to the same bytes: the encoder picks
// a path by the room it is given (measuring, byte by byte at the end of a
// short buffer, unchecked in a buffer that holds the record at its largest),
// so a path added later is checked by every record without records of its
// own.
struct path {
    const char *name;
    size_t size;
    bool gather;
};

std::vector<path> paths_for(size_t full)
{
    std::vector<path> paths{{"measure", 0, false}};
    for (size_t n = 1; n < full; ++n) {
        paths.push_back({"shorter buffer", n, false});
    }
    paths.push_back({"exact buffer", full, false});
    for (size_t n = full + 1; n <= full + 64; ++n) {
        paths.push_back({"larger buffer", n, false});
    }
    paths.push_back({"buffer past any bound", full + 65536, false});
    const size_t plain_paths = paths.size();
    for (size_t i = 0; i < plain_paths; ++i) {
        paths.push_back({"gathered", paths[i].size, true});
    }
    return paths;
}

void check_writing(const entry &m, const void *record)
{
    const bytes plain = encode(m, record);
    for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
        const auto [reference, slots] = check_fragments(m, record, plain, flags);
        const size_t full = reference.size();
        const auto needed = static_cast<unsigned>(slots.size());
        for (const path &p : paths_for(full)) {
            if (!p.gather && flags == MIVO_FLAG_SHARED) {
                continue; // shared byte strings need a fragment list
            }
            // 16 guard bytes either side; the measuring call gets no buffer.
            bytes buffer(p.size + 32, canary);
            std::vector<mivo_bytes> scratch(needed);
            unsigned count = needed;
            uint8_t *dest = p.size == 0 && !p.gather ? nullptr : buffer.data() + 16;
            require(m.encode(record, dest, p.size, p.gather ? scratch.data() : nullptr, p.gather ? &count : nullptr,
                             flags) == full && count == needed,
                    p.name, "the result or the piece count differs");
            for (size_t i = 0; i < buffer.size(); ++i) {
                const bool inside = i >= 16 && i < 16 + std::min(p.size, full);
                require(buffer[i] == canary || (inside && buffer[i] == reference[i - 16]), p.name,
                        "stored outside the buffer, or not the encoding's byte");
            }
            require(p.size < full || std::equal(reference.begin(), reference.end(), buffer.begin() + 16), p.name,
                    "a buffer that holds the encoding does not hold it whole");
        }
        for (unsigned capacity = 0; capacity <= needed; ++capacity) {
            const mivo_bytes sentinel{reference.data(), 0xDEAD};
            std::vector<mivo_bytes> pieces(needed + 1, sentinel);
            bytes out(full);
            unsigned count = capacity;
            require(m.encode(record, out.data(), full, pieces.data(), &count, flags) == full && count == needed &&
                        out == reference,
                    "a small fragment capacity changed the result");
            for (unsigned i = 0; i <= needed; ++i) {
                const mivo_bytes &p = pieces[i], &s = i < capacity ? slots[i] : sentinel;
                const bool same = i >= capacity ? p.data == s.data : std::equal(p.data, p.data + p.size, s.data);
                require(p.size == s.size && same, "a piece stored past the capacity, or not the full list's");
            }
        }
    }
}

template <class Fn>
std::string run(const entry &m, Fn &&fn)
{
    try {
        fn();
    } catch (const violated &v) {
        return std::string(m.name) + ": " + v.what;
    }
    return {};
}

} // namespace

std::string violation(const input_case &c, std::span<const uint8_t> wire)
{
    return run(mivo_catalogue::entries()[c.target % mivo_catalogue::entry_count], [&] { check(c, wire); });
}

std::string writing_violation(const entry &m, const void *record)
{
    return run(m, [&] { check_writing(m, record); });
}

void check_one_input(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return;
    }
    const size_t fail_at = data[1] >> 1;
    const input_case c{data[0], static_cast<mivo_flags>(data[1] & MIVO_FLAG_SHARED), fail_at, fail_at};
    const std::string what = violation(c, {data + 2, size - 2});
    if (!what.empty()) {
        std::fprintf(stderr, "invariant violated for %s\n", what.c_str());
        std::abort();
    }
}

} // namespace mivo_fuzz
