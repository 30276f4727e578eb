// Our codec against libprotobuf, which reads the schema obfl-wire exports and
// codes dynamic messages through reflection: an encoder and a decoder that
// share nothing with ours. Every message and the identifier are checked on
// seeded random messages, by bytes alone: their encoding through our decoder
// and encoder must come back as the same bytes.
// The worked examples' hand-worked encodings pin the exported schema itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "random_message.hpp"
#include "unit_support.hpp"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using mivo_test::counting_allocator;
using message_ops = mivo_catalogue::entry;

constexpr uint64_t cases_per_target = 300;

// A minimal reader of the wire form's top-level fields, our own, so that the
// checks do not lean on the library's primitives.
struct field_span {
    uint64_t key;
    size_t begin, value, end; // the key's first byte, the value's, one past it
};

bool read_varint(std::string_view s, size_t &pos, uint64_t &value)
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

std::string varint(uint64_t value)
{
    std::string out;
    do {
        out += static_cast<char>((value & 0x7F) | (value > 0x7F ? 0x80 : 0));
        value >>= 7;
    } while (value);
    return out;
}

// Top-level fields of a well-formed encoding, in wire order.
std::vector<field_span> split_fields(std::string_view s)
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

// libprotobuf sign-extends a negative int32 to a ten-byte varint; ours sends
// its 32-bit pattern in five. Rewrites theirs into ours, also inside nested
// messages, leaving every other byte alone.
std::string ours_from_theirs(std::string_view theirs, const Descriptor *d)
{
    std::string out;
    for (const field_span &f : split_fields(theirs)) {
        const FieldDescriptor *fd = d->FindFieldByNumber(static_cast<int>(f.key >> 3));
        size_t pos = f.value;
        uint64_t value = 0;
        if (fd && fd->type() == FieldDescriptor::TYPE_INT32 && (f.key & 7) == 0) {
            read_varint(theirs, pos, value);
            out += varint(f.key) + varint(static_cast<uint32_t>(value));
        } else if (fd && fd->type() == FieldDescriptor::TYPE_MESSAGE && (f.key & 7) == 2) {
            read_varint(theirs, pos, value);
            const std::string inner = ours_from_theirs(theirs.substr(pos, f.end - pos), fd->message_type());
            out += varint(f.key) + varint(inner.size()) + inner;
        } else {
            out.append(theirs.substr(f.begin, f.end - f.begin));
        }
    }
    return out;
}

// A random field the record does not define, with a valid payload: field 0
// or a number above the record's last, wire type 0, 1, 2 or 5.
std::string unknown_field(int last_field, std::mt19937_64 &rng)
{
    const uint64_t numbers[] = {0, uint64_t(last_field) + 1, uint64_t(last_field) + 2, 1000, (1u << 29) - 1};
    const unsigned type = "\0\1\2\5"[rng() % 4];
    const size_t length = type == 1 ? 8 : type == 5 ? 4 : type == 2 ? rng() % 24 : 0;
    std::string out = varint(numbers[rng() % std::size(numbers)] << 3 | type);
    out += type == 0 ? varint(rng() >> (rng() % 64)) : type == 2 ? varint(length) : "";
    for (size_t i = 0; i < length; ++i) {
        out += static_cast<char>(rng());
    }
    return out;
}

// Splices unknown fields in at random field boundaries, never inside the run
// of a repeated member (a broken run is refused by design).
std::string splice_unknown(std::string_view wire, int last_field, std::mt19937_64 &rng)
{
    const auto fields = split_fields(wire);
    std::string out;
    for (size_t i = 0; i <= fields.size(); ++i) {
        const bool inside_run = i > 0 && i < fields.size() && fields[i - 1].key == fields[i].key;
        while (!inside_run && rng() % 3 == 0) {
            out += unknown_field(last_field, rng);
        }
        if (i < fields.size()) {
            out.append(wire.substr(fields[i].begin, fields[i].end - fields[i].begin));
        }
    }
    return out;
}

// Keeps only the singular numbers and booleans, which the decoder may meet
// twice (the later one wins, as in libprotobuf); strings, byte strings and
// repeated members met twice are refused by design.
void keep_only_singular_numbers(Message &m)
{
    const Descriptor *d = m.GetDescriptor();
    for (int i = 0; i < d->field_count(); ++i) {
        const FieldDescriptor *f = d->field(i);
        if (f->is_repeated() || f->cpp_type() == FieldDescriptor::CPPTYPE_STRING ||
            f->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
            m.GetReflection()->ClearField(&m, f);
        }
    }
}

// Our decoder (with flags) then our encoder: plain, or with sharing joined
// from the fragment list (the identifier lists none: its buffer is all).
std::pair<int, std::string> through_ours(const message_ops &ops, std::string_view wire, mivo_flags flags)
{
    counting_allocator a;
    mivo_catalogue::record_storage record;
    const int rc = ops.decode(&record, reinterpret_cast<const uint8_t *>(wire.data()), wire.size(),
                              &counting_allocator::allocate, &a, flags);
    unsigned pieces = 0, *count = flags ? &pieces : nullptr;
    std::string buffer(ops.encode(&record, nullptr, 0, nullptr, count, flags), '\0');
    std::vector<mivo_bytes> fragments(pieces);
    EXPECT_EQ(ops.encode(&record, reinterpret_cast<uint8_t *>(buffer.data()), buffer.size(), fragments.data(), count,
                         flags),
              buffer.size());
    std::string out = fragments.empty() ? buffer : std::string();
    for (const mivo_bytes &f : fragments) {
        out.append(reinterpret_cast<const char *>(f.data), f.size);
    }
    ops.release(&record, &counting_allocator::release, &a, flags);
    EXPECT_EQ(a.live() + a.misuses(), 0u);
    return {rc, out};
}

// What to feed our codec, made from a random message and its encoding by
// libprotobuf, and the message our codec must read from it (`expected`
// starts as the random message).
struct variant {
    const char *name;
    std::string (*input)(std::string_view theirs, Message &expected, uint64_t seed);
};

const variant variants[] = {
    {"their encoding", [](std::string_view theirs, Message &, uint64_t) { return std::string(theirs); }},
    {"with unknown fields spliced in",
     [](std::string_view theirs, Message &expected, uint64_t seed) {
         std::mt19937_64 rng(seed);
         const Descriptor *d = expected.GetDescriptor();
         return splice_unknown(theirs, d->field(d->field_count() - 1)->number(), rng);
     }},
    {"followed by other values of its numbers",
     [](std::string_view theirs, Message &expected, uint64_t seed) {
         auto later = mivo_test::random_message(expected.GetDescriptor(), ~seed);
         keep_only_singular_numbers(*later);
         expected.MergeFrom(*later);
         return std::string(theirs) + later->SerializeAsString();
     }},
};

class Differential : public ::testing::TestWithParam<size_t> {};

// Each variant, decoded plain and shared, re-encodes to exactly libprotobuf's
// encoding of the expected message (in our int32 form): the strongest form
// of "libprotobuf reads ours as that message, with nothing unknown".
TEST_P(Differential, AgreesWithLibprotobuf)
{
    const message_ops &ops = mivo_catalogue::entries()[GetParam()];
    const Descriptor *type = mivo_test::schema_message(ops.name);
    ASSERT_NE(type, nullptr) << "the exported schema lacks " << ops.name;
    for (uint64_t seed = 0; seed < cases_per_target; ++seed) {
        const auto random = mivo_test::random_message(type, seed);
        const std::string theirs = random->SerializeAsString();
        for (const variant &v : variants) {
            SCOPED_TRACE(std::string(v.name) + ", seed " + std::to_string(seed));
            auto expected = mivo_test::new_message(type);
            expected->CopyFrom(*random);
            const std::string input = v.input(theirs, *expected, seed);
            for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
                const auto [rc, ours] = through_ours(ops, input, flags);
                ASSERT_EQ(rc, MIVO_NO_ERROR) << "flags " << flags;
                ASSERT_EQ(ours, ours_from_theirs(expected->SerializeAsString(), type)) << "flags " << flags;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, Differential, ::testing::Range<size_t>(0, mivo_catalogue::entry_count),
                         [](const auto &info) { return std::string(mivo_catalogue::entries()[info.param].name); });

// The worked examples' records built by libprotobuf through reflection from
// their JSON (64-bit numbers as decimal strings, byte strings in hex, `null`
// for a present member without contents, which is nothing on the wire).
void from_json(Message &m, const unit::json &in)
{
    const Reflection *r = m.GetReflection();
    for (const auto &[name, value] : in.items()) {
        const FieldDescriptor *f = m.GetDescriptor()->FindFieldByName(name);
        ASSERT_NE(f, nullptr) << name;
        const bool rep = f->is_repeated();
        const auto put = [&](auto add, auto set, auto x) { rep ? (r->*add)(&m, f, x) : (r->*set)(&m, f, x); };
        for (const auto &v : rep || value.is_null() ? value : unit::json::array({value})) {
            switch (f->cpp_type()) {
            case FieldDescriptor::CPPTYPE_UINT32:
                put(&Reflection::AddUInt32, &Reflection::SetUInt32, uint32_t(v));
                break;
            case FieldDescriptor::CPPTYPE_INT32: put(&Reflection::AddInt32, &Reflection::SetInt32, int32_t(v)); break;
            case FieldDescriptor::CPPTYPE_UINT64:
                put(&Reflection::AddUInt64, &Reflection::SetUInt64,
                    v.is_string() ? std::stoull(v.get<std::string>()) : v.get<uint64_t>());
                break;
            case FieldDescriptor::CPPTYPE_BOOL: put(&Reflection::AddBool, &Reflection::SetBool, v.get<bool>()); break;
            case FieldDescriptor::CPPTYPE_STRING: {
                const std::string text = v;
                const unit::bytes b = f->type() == FieldDescriptor::TYPE_BYTES ? unit::hex(text) : unit::bytes();
                put(&Reflection::AddString, &Reflection::SetString, b.empty() ? text : std::string(b.begin(), b.end()));
                break;
            }
            case FieldDescriptor::CPPTYPE_MESSAGE:
                from_json(rep ? *r->AddMessage(&m, f) : *r->MutableMessage(&m, f), v);
                break;
            default: FAIL() << "a type the catalogue has never used: " << name;
            }
        }
    }
}

// libprotobuf writes exactly the hand-worked bytes of every worked example
// (in our int32 form), which pins the exported schema's names, numbers and
// types; the unit driver holds our codec to the same rows.
TEST(DifferentialWorkedExamples, LibprotobufWritesTheHandWorkedBytes)
{
    unit::for_each_row("worked_examples.txt", 97, [](const unit::row &row, const unit::message &) {
        const Descriptor *type = mivo_test::schema_message(row.col(0));
        ASSERT_NE(type, nullptr);
        auto message = mivo_test::new_message(type);
        from_json(*message, unit::json::parse(row.col(1)));
        const unit::bytes expected = unit::hex(row.col(2));
        EXPECT_EQ(ours_from_theirs(message->SerializeAsString(), type), std::string(expected.begin(), expected.end()));
    });
}

} // namespace
