// The wire primitives against hand-worked bytes, one table per wire type:
// the varint writers (bounded at every buffer size, measuring with a null
// buffer), the 32- and 64-bit varint readers, and the skipper of each type.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "nuvex_decode.h"
#include "nuvex_duplicate.h"
#include "nuvex_encode.h"
#include "unit_support.hpp"

namespace {

using unit::bytes;
using unit::hex;
using unit::to_hex;

// The four writers behind one signature.
using writer = size_t (*)(uint64_t value, size_t offset, uint8_t *dest, size_t dest_size);
const writer var7 = [](uint64_t v, size_t o, uint8_t *d, size_t n) { return nuvex_encode_var7(uint8_t(v), o, d, n); };
const writer var8 = [](uint64_t v, size_t o, uint8_t *d, size_t n) { return nuvex_encode_var8(uint8_t(v), o, d, n); };
const writer var32 = [](uint64_t v, size_t o, uint8_t *d, size_t n) { return nuvex_encode_var32(uint32_t(v), o, d, n); };
const writer var64 = [](uint64_t v, size_t o, uint8_t *d, size_t n) { return nuvex_encode_var64(v, o, d, n); };

struct encode_case {
    writer fn;
    uint64_t value;
    const char *expected;
};

const encode_case encode_cases[] = {
    {var7, 0, "00"},
    {var7, 0x0A, "0A"}, // key of field 1, wire type 2
    {var7, 127, "7F"},
    {var8, 100, "64"},
    {var8, 128, "80 01"}, // key of field 16, wire type 0
    {var8, 152, "98 01"}, // key of field 19, wire type 0
    {var8, 255, "FF 01"},
    {var32, 0, "00"},
    {var32, 127, "7F"},
    {var32, 128, "80 01"},
    {var32, 150, "96 01"},
    {var32, 300, "AC 02"},
    {var32, 0x0FFFFFFF, "FF FF FF 7F"},
    {var32, 0x10000000, "80 80 80 80 01"},
    {var32, 0xFFFFFFFF, "FF FF FF FF 0F"}, // also the pattern of int32 -1
    {var32, 0xFFFFFFFE, "FE FF FF FF 0F"}, // int32 -2
    {var64, 0, "00"},
    {var64, 300, "AC 02"},
    {var64, 0x100000000ull, "80 80 80 80 10"},
    {var64, 0x8000000000000000ull, "80 80 80 80 80 80 80 80 80 01"},
    {var64, UINT64_MAX, "FF FF FF FF FF FF FF FF FF 01"},
};

void PrintTo(const encode_case &c, std::ostream *os) { *os << c.expected; }

class EncodePrimitive : public ::testing::TestWithParam<encode_case> {};

TEST_P(EncodePrimitive, BoundedWritingAtEveryBufferSize)
{
    const auto &c = GetParam();
    const bytes expected = hex(c.expected);
    const uint8_t canary = 0x5A;
    for (size_t offset : {size_t{0}, size_t{2}}) {
        for (size_t dest_size = 0; dest_size <= offset + expected.size(); ++dest_size) {
            bytes buf(offset + expected.size() + 4, canary);
            ASSERT_EQ(c.fn(c.value, offset, buf.data(), dest_size), offset + expected.size())
                << "dest_size " << dest_size;
            for (size_t i = 0; i < buf.size(); ++i) {
                const bool stored = i >= offset && i < dest_size && i < offset + expected.size();
                EXPECT_EQ(buf[i], stored ? expected[i - offset] : canary)
                    << "byte " << i << " with dest_size " << dest_size << " offset " << offset;
            }
        }
    }
    // Measuring with a null buffer.
    EXPECT_EQ(c.fn(c.value, 7, nullptr, 0), 7 + expected.size());
}

INSTANTIATE_TEST_SUITE_P(Values, EncodePrimitive, ::testing::ValuesIn(encode_cases));

struct decode_case {
    const char *input;
    size_t start;
    int rc32;
    uint32_t value32;
    int rc64;
    uint64_t value64;
    size_t end; // position after a successful read
};

constexpr int ok = MIVO_NO_ERROR;
constexpr int garbled = MIVO_ERROR_GARBLED;

const decode_case decode_cases[] = {
    {"00", 0, ok, 0, ok, 0, 1},
    {"7F", 0, ok, 127, ok, 127, 1},
    {"96 01", 0, ok, 150, ok, 150, 2},
    {"00 96 01", 1, ok, 150, ok, 150, 3},
    {"AC 02 FF", 0, ok, 300, ok, 300, 2}, // stops at the first byte with bit 7 clear
    // 2^32: the 32-bit reader keeps the low 32 bits.
    {"80 80 80 80 10", 0, ok, 0, ok, 0x100000000ull, 5},
    {"FF FF FF FF 0F", 0, ok, 0xFFFFFFFF, ok, 0xFFFFFFFF, 5},
    // Bits 4-6 of the fifth byte fall off the 32-bit value only.
    {"FF FF FF FF 7F", 0, ok, 0xFFFFFFFF, ok, 0x7FFFFFFFFull, 5},
    // Ten-byte forms: sign-extended -1, and the largest 64-bit value.
    {"FF FF FF FF FF FF FF FF FF 01", 0, ok, 0xFFFFFFFF, ok, UINT64_MAX, 10},
    {"80 80 80 80 80 80 80 80 80 7F", 0, ok, 0, ok, 0x8000000000000000ull, 10},
    // Overlong tails are consumed and ignored, also by the 32-bit reader
    // past its fifth byte.
    {"80 80 80 80 80 01", 0, ok, 0, ok, 0x800000000ull, 6},
    {"80 80 80 80 80 80 00", 0, ok, 0, ok, 0, 7},
    {"FF FF FF FF FF FF FF FF FF 81 80 00", 0, ok, 0xFFFFFFFF, ok, UINT64_MAX, 12},
    // Truncated: at the end, a lone continuation byte, cut inside the tail.
    {"", 0, garbled, 0, garbled, 0, 0},
    {"96 01", 2, garbled, 0, garbled, 0, 0},
    {"80", 0, garbled, 0, garbled, 0, 0},
    {"08 96", 1, garbled, 0, garbled, 0, 0},
    {"FF FF FF FF FF", 0, garbled, 0, garbled, 0, 0},
    {"FF FF FF FF FF FF FF FF FF FF", 0, garbled, 0, garbled, 0, 0},
    {"FF FF FF FF FF FF FF FF FF 81 80", 0, garbled, 0, garbled, 0, 0},
};

void PrintTo(const decode_case &c, std::ostream *os) { *os << '"' << c.input << "\" from " << c.start; }

class DecodePrimitive : public ::testing::TestWithParam<decode_case> {};

// On success the value and the position after it; on failure neither moves.
// A null value pointer moves the position exactly the same way.
template <class T, class F>
void expect_read(F read, const decode_case &c, int rc, T want)
{
    const bytes in = hex(c.input);
    size_t offset = c.start, offset_null = c.start;
    T value = T(0xDEADBEEFCAFEF00Dull);
    ASSERT_EQ(read(&value, &offset, in.data(), in.size()), rc);
    EXPECT_EQ(value, rc == ok ? want : T(0xDEADBEEFCAFEF00Dull));
    EXPECT_EQ(offset, rc == ok ? c.end : c.start);
    EXPECT_EQ(read(nullptr, &offset_null, in.data(), in.size()), rc);
    EXPECT_EQ(offset_null, offset);
}

TEST_P(DecodePrimitive, Var32) { expect_read<uint32_t>(nuvex_decode_var32, GetParam(), GetParam().rc32, GetParam().value32); }
TEST_P(DecodePrimitive, Var64) { expect_read<uint64_t>(nuvex_decode_var64, GetParam(), GetParam().rc64, GetParam().value64); }

INSTANTIATE_TEST_SUITE_P(Values, DecodePrimitive, ::testing::ValuesIn(decode_cases));

struct advance_case {
    unsigned type;
    const char *input;
    size_t start;
    int rc;
    size_t end; // equals start whenever rc is not 0
};

const advance_case advance_cases[] = {
    {NUVEX_TYPE_VARINT, "96 01", 0, ok, 2},
    {NUVEX_TYPE_VARINT, "FF FF FF FF FF FF FF FF FF FF FF 01", 0, ok, 12},
    {NUVEX_TYPE_VARINT, "80", 0, garbled, 0},
    {NUVEX_TYPE_VARINT, "", 0, garbled, 0},
    // Fixed widths and lengths are not held against the end of the input.
    {NUVEX_TYPE_FIXED64, "01 02 03 04 05 06 07 08", 0, ok, 8},
    {NUVEX_TYPE_FIXED64, "01", 0, ok, 8},
    {NUVEX_TYPE_FIXED32, "00 01 02 03 04", 1, ok, 5},
    {NUVEX_TYPE_FIXED32, "", 0, ok, 4},
    {NUVEX_TYPE_LENGTH, "03 61 62 63", 0, ok, 4},
    {NUVEX_TYPE_LENGTH, "00 02 61 62", 1, ok, 4},
    {NUVEX_TYPE_LENGTH, "05 61 62", 0, ok, 6},
    {NUVEX_TYPE_LENGTH, "", 0, garbled, 0},
    {NUVEX_TYPE_LENGTH, "80", 0, garbled, 0},
    {NUVEX_TYPE_START_GROUP, "05", 0, MIVO_ERROR_UNSUPPORTED, 0},
    {NUVEX_TYPE_END_GROUP, "05", 0, MIVO_ERROR_UNSUPPORTED, 0},
    {6, "05", 0, MIVO_ERROR_UNSUPPORTED, 0},
    {7, "05", 0, MIVO_ERROR_UNSUPPORTED, 0},
    {8, "05", 0, MIVO_ERROR_UNSUPPORTED, 0},
    {255, "", 0, MIVO_ERROR_UNSUPPORTED, 0},
};

void PrintTo(const advance_case &c, std::ostream *os) { *os << "type " << c.type << " over \"" << c.input << '"'; }

class AdvancePrimitive : public ::testing::TestWithParam<advance_case> {};

TEST_P(AdvancePrimitive, SkipsOneValue)
{
    const auto &c = GetParam();
    const bytes in = hex(c.input);
    size_t offset = c.start;
    EXPECT_EQ(nuvex_decode_advance(c.type, &offset, in.data(), in.size()), c.rc);
    EXPECT_EQ(offset, c.rc == ok ? c.end : c.start);
}

INSTANTIATE_TEST_SUITE_P(Types, AdvancePrimitive, ::testing::ValuesIn(advance_cases));

TEST(Strlen, CountsBytesBeforeTheNul)
{
    EXPECT_EQ(nuvex_strlen(""), 0u);
    EXPECT_EQ(nuvex_strlen("abc"), 3u);
    EXPECT_EQ(nuvex_strlen("ab\0cd"), 2u);
}

} // namespace
