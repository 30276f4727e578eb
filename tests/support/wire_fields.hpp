// A minimal reader of the wire form's top-level fields, our own, so that
// checks on encodings do not lean on the library's primitives.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace mivo_test {

struct field_span {
    uint64_t key;
    size_t begin, value, end; // the key's first byte, the value's, one past it
};

inline bool read_varint(std::string_view s, size_t &pos, uint64_t &value)
{
    value = 0;
    for (unsigned shift = 0; pos < s.size() && shift < 64; shift += 7) {
        const auto byte = static_cast<uint8_t>(s[pos++]);
        value |= uint64_t(byte & 0x7F) << shift;
        if (!(byte & 0x80)) {
            return true;
        }
    }
    return false;
}

inline std::string varint(uint64_t value)
{
    std::string out;
    do {
        out += static_cast<char>((value & 0x7F) | (value > 0x7F ? 0x80 : 0));
        value >>= 7;
    } while (value);
    return out;
}

// Top-level fields of a well-formed encoding, in wire order.
inline std::vector<field_span> split_fields(std::string_view s)
{
    std::vector<field_span> fields;
    for (size_t pos = 0; pos < s.size();) {
        field_span f{0, pos, 0, 0};
        uint64_t length = 0;
        EXPECT_TRUE(read_varint(s, pos, f.key));
        f.value = pos;
        const unsigned type = f.key & 7;
        EXPECT_TRUE(type == 0 || type == 1 || type == 2 || type == 5) << "wire type " << type;
        EXPECT_TRUE(type % 2 || read_varint(s, pos, length));
        pos += type == 1 ? 8 : type == 5 ? 4 : type == 2 ? length : 0;
        f.end = std::min(pos, s.size());
        fields.push_back(f);
    }
    return fields;
}

} // namespace mivo_test
