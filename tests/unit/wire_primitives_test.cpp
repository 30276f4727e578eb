// The wire primitives against hand-worked bytes, one table each: the varint
// writers (bounded at every buffer size, measuring with a null buffer), the
// 32- and 64-bit varint readers, and the skipper of every wire type.
#include <gtest/gtest.h>

#include "nuvex_decode.h"
#include "nuvex_duplicate.h"
#include "nuvex_encode.h"
#include "unit_support.hpp"

namespace {

using unit::bytes;
using unit::hex;
constexpr int ok = MIVO_NO_ERROR, garbled = MIVO_ERROR_GARBLED, unsupported = MIVO_ERROR_UNSUPPORTED;

using writer = size_t (*)(uint64_t value, size_t offset, uint8_t *dest, size_t dest_size);
const writer var7 = [](uint64_t v, size_t o, uint8_t *d, size_t n) { return nuvex_encode_var7(uint8_t(v), o, d, n); };
const writer var8 = [](uint64_t v, size_t o, uint8_t *d, size_t n) { return nuvex_encode_var8(uint8_t(v), o, d, n); };
const writer var32 = [](uint64_t v, size_t o, uint8_t *d, size_t n) { return nuvex_encode_var32(uint32_t(v), o, d, n); };
const writer var64 = [](uint64_t v, size_t o, uint8_t *d, size_t n) { return nuvex_encode_var64(v, o, d, n); };

const struct {
    writer fn;
    uint64_t value;
    const char *expected;
} writes[] = {
    {var7, 0x0A, "0A"}, {var7, 127, "7F"},              // one-byte keys
    {var8, 100, "64"},  {var8, 128, "80 01"}, {var8, 152, "98 01"}, {var8, 255, "FF 01"}, // two-byte keys
    {var32, 0, "00"},   {var32, 127, "7F"},   {var32, 128, "80 01"}, {var32, 300, "AC 02"},
    {var32, 0x0FFFFFFF, "FF FF FF 7F"}, {var32, 0x10000000, "80 80 80 80 01"},
    {var32, 0xFFFFFFFF, "FF FF FF FF 0F"}, {var32, 0xFFFFFFFE, "FE FF FF FF 0F"}, // int32 -1, -2
    {var64, 300, "AC 02"}, {var64, 0x100000000ull, "80 80 80 80 10"},
    {var64, 0x8000000000000000ull, "80 80 80 80 80 80 80 80 80 01"},
    {var64, UINT64_MAX, "FF FF FF FF FF FF FF FF FF 01"},
};

TEST(WirePrimitives, WritersAreExactAndBoundedAtEveryBufferSize)
{
    for (const auto &c : writes) {
        SCOPED_TRACE(c.expected);
        const bytes expected = hex(c.expected);
        for (size_t offset : {size_t{0}, size_t{2}}) {
            for (size_t dest_size = 0; dest_size <= offset + expected.size(); ++dest_size) {
                bytes buf(offset + expected.size() + 4, 0x5A);
                ASSERT_EQ(c.fn(c.value, offset, buf.data(), dest_size), offset + expected.size());
                for (size_t i = 0; i < buf.size(); ++i) {
                    const bool stored = i >= offset && i < dest_size && i < offset + expected.size();
                    EXPECT_EQ(buf[i], stored ? expected[i - offset] : 0x5A) << "byte " << i << ", size " << dest_size;
                }
            }
        }
        EXPECT_EQ(c.fn(c.value, 7, nullptr, 0), 7 + expected.size()); // measuring
    }
}

// Reads from start: the results of the 32- and 64-bit readers, their values
// and the position after the value (on failure neither value nor position moves).
const struct {
    const char *input;
    size_t start;
    int rc;
    uint32_t value32;
    uint64_t value64;
    size_t end;
} reads[] = {
    {"00", 0, ok, 0, 0, 1},
    {"7F", 0, ok, 127, 127, 1},
    {"00 96 01", 1, ok, 150, 150, 3},
    {"AC 02 FF", 0, ok, 300, 300, 2}, // stops at the first byte with bit 7 clear
    {"80 80 80 80 10", 0, ok, 0, 0x100000000ull, 5}, // 2^32: the 32-bit reader keeps the low bits
    {"FF FF FF FF 7F", 0, ok, 0xFFFFFFFF, 0x7FFFFFFFFull, 5},
    {"FF FF FF FF FF FF FF FF FF 01", 0, ok, 0xFFFFFFFF, UINT64_MAX, 10}, // sign-extended -1
    {"80 80 80 80 80 80 80 80 80 7F", 0, ok, 0, 0x8000000000000000ull, 10},
    // overlong tails are read to their end and ignored
    {"80 80 80 80 80 80 00", 0, ok, 0, 0, 7},
    {"FF FF FF FF FF FF FF FF FF 81 80 00", 0, ok, 0xFFFFFFFF, UINT64_MAX, 12},
    {"", 0, garbled, 0, 0, 0},
    {"96 01", 2, garbled, 0, 0, 0},
    {"08 96", 1, garbled, 0, 0, 0},
    {"FF FF FF FF FF", 0, garbled, 0, 0, 0},
    {"FF FF FF FF FF FF FF FF FF 81 80", 0, garbled, 0, 0, 0},
};

template <class T, class F>
void expect_read(F read, const bytes &in, size_t start, int rc, T want, size_t end)
{
    size_t offset = start, offset_null = start;
    T value = T(0xDEADBEEFCAFEF00Dull);
    ASSERT_EQ(read(&value, &offset, in.data(), in.size()), rc);
    EXPECT_EQ(value, rc == ok ? want : T(0xDEADBEEFCAFEF00Dull));
    EXPECT_EQ(offset, rc == ok ? end : start);
    EXPECT_EQ(read(nullptr, &offset_null, in.data(), in.size()), rc); // a null value moves the same way
    EXPECT_EQ(offset_null, offset);
}

TEST(WirePrimitives, VarintReaders)
{
    for (const auto &c : reads) {
        SCOPED_TRACE(std::string(c.input) + " from " + std::to_string(c.start));
        const bytes in = hex(c.input);
        expect_read<uint32_t>(nuvex_decode_var32, in, c.start, c.rc, c.value32, c.end);
        expect_read<uint64_t>(nuvex_decode_var64, in, c.start, c.rc, c.value64, c.end);
    }
}

// Fixed widths and lengths are not held against the end of the input.
const struct {
    unsigned type;
    const char *input;
    size_t start;
    int rc;
    size_t end;
} skips[] = {
    {NUVEX_TYPE_VARINT, "96 01", 0, ok, 2},
    {NUVEX_TYPE_VARINT, "FF FF FF FF FF FF FF FF FF FF FF 01", 0, ok, 12},
    {NUVEX_TYPE_VARINT, "80", 0, garbled, 0},
    {NUVEX_TYPE_FIXED64, "01", 0, ok, 8},
    {NUVEX_TYPE_FIXED32, "00 01 02 03 04", 1, ok, 5},
    {NUVEX_TYPE_LENGTH, "00 02 61 62", 1, ok, 4},
    {NUVEX_TYPE_LENGTH, "05 61 62", 0, ok, 6},
    {NUVEX_TYPE_LENGTH, "", 0, garbled, 0},
    {NUVEX_TYPE_LENGTH, "80", 0, garbled, 0},
    {NUVEX_TYPE_START_GROUP, "05", 0, unsupported, 0},
    {NUVEX_TYPE_END_GROUP, "05", 0, unsupported, 0},
    {6, "05", 0, unsupported, 0},
    {7, "05", 0, unsupported, 0},
    {255, "", 0, unsupported, 0},
};

TEST(WirePrimitives, SkipperOfEveryWireType)
{
    for (const auto &c : skips) {
        SCOPED_TRACE("type " + std::to_string(c.type) + " over " + c.input);
        const bytes in = hex(c.input);
        size_t offset = c.start;
        EXPECT_EQ(nuvex_decode_advance(c.type, &offset, in.data(), in.size()), c.rc);
        EXPECT_EQ(offset, c.rc == ok ? c.end : c.start);
    }
    EXPECT_EQ(nuvex_strlen("ab\0cd"), 2u);
    EXPECT_EQ(nuvex_strlen(""), 0u);
}

} // namespace
