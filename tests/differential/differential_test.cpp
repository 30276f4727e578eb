// Our codec against libprotobuf, which reads the schema obfl-wire exports and
// codes dynamic messages through reflection: an encoder and a decoder that
// share nothing with ours. Every message and the identifier are checked on
// seeded random messages, by bytes alone: their encoding through our decoder
// and encoder must come back as the same bytes.
// Hand-worked encodings pin the exported schema itself.
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "counting_allocator.hpp"
#include "decode_invariants.hpp"
#include "catalogue_table.hpp"
#include "random_wire.hpp"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using mivo_test::counting_allocator;
using message_ops = mivo_catalogue::entry;

constexpr uint64_t cases_per_target = 300;

// ---- A minimal wire reader of our own, so that the checks do not lean on
// the library's primitives.

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
        switch (f.key & 7) {
        case 0: EXPECT_TRUE(read_varint(s, pos, length)); break;
        case 1: pos += 8; break;
        case 2:
            EXPECT_TRUE(read_varint(s, pos, length));
            pos += length;
            break;
        case 5: pos += 4; break;
        default: ADD_FAILURE() << "wire type " << (f.key & 7); return fields;
        }
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

// Our decoder (with flags) then our encoder: plain into a buffer of exactly
// the measured size, or with sharing gathered from the fragment list (the
// identifier's codec lists no fragments; its buffer is the whole encoding).
struct round_trip {
    int rc = MIVO_NO_ERROR;
    std::string bytes;
};

round_trip through_ours(const message_ops &ops, std::string_view wire, mivo_flags flags)
{
    counting_allocator a;
    mivo_catalogue::record_storage record;
    round_trip out;
    out.rc = ops.decode(&record, reinterpret_cast<const uint8_t *>(wire.data()), wire.size(),
                        &counting_allocator::allocate, &a, flags);
    unsigned pieces = 0;
    const size_t size = ops.encode(&record, nullptr, 0, nullptr, flags ? &pieces : nullptr, flags);
    std::vector<uint8_t> buffer(size);
    std::vector<mivo_bytes> fragments(pieces);
    EXPECT_EQ(ops.encode(&record, buffer.data(), size, fragments.data(), flags ? &pieces : nullptr, flags), size);
    if (fragments.empty()) {
        out.bytes.assign(buffer.begin(), buffer.end());
    }
    for (const mivo_bytes &f : fragments) {
        out.bytes.append(reinterpret_cast<const char *>(f.data), f.size);
    }
    ops.release(&record, &counting_allocator::release, &a, flags);
    EXPECT_EQ(a.live() + a.misuses(), 0u);
    return out;
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
                const round_trip ours = through_ours(ops, input, flags);
                ASSERT_EQ(ours.rc, MIVO_NO_ERROR) << "flags " << flags;
                ASSERT_EQ(ours.bytes, ours_from_theirs(expected->SerializeAsString(), type)) << "flags " << flags;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, Differential, ::testing::Range<size_t>(0, mivo_catalogue::entry_count),
                         [](const auto &info) { return std::string(mivo_catalogue::entries()[info.param].name); });

// Hand-worked encodings: libprotobuf must write exactly these bytes for the
// message in text form (which pins the exported schema's names, numbers and
// types), and ours must decode and re-encode them unchanged.
const struct {
    const char *record;
    const char *text; // the message in libprotobuf's text format
    const char *hex;
} worked_examples[] = {
    {"mgbl_hello", "version: 1 timestamp: 300 is_resend_msg: true seq_num: 7 respawn: false",
     "08 01 10 AC 02 18 01 20 07 28 00"},
    {"mgbl_hello_done", "err_code: 4294967296", "18 80 80 80 80 10"},
    {"mgbl_notify_locations", "location_name: 'a' location_name: 'bc'", "2A 01 61 2A 02 62 63"},
    {"mgbl_request", "req_type: 3 rec_type: 7", "38 03 48 07"},
    {"mgbl_request_done", "data: '\\001\\002\\003'", "6A 03 01 02 03"},
    {"svc_regn", "seq_num: 1 svc_name: 'ab' svc_type: 4 client_comp_id: 200", "30 01 3A 02 61 62 40 04 50 C8 01"},
    {"svc_unregn", "seq_num: 1 svc_name: 'ab' svc_type: 4 client_comp_id: 200", "38 01 42 02 61 62 48 04 58 C8 01"},
    {"svc_regn_done", "client_id: 5 svc_type: 4 err_code: 0 r_msn: 9", "18 05 20 04 28 00 30 09"},
    {"write_env_pep_record_done", "version: 1 client_id: 7 err_code: 4294967296 r_msn: 5",
     "08 01 18 07 20 80 80 80 80 10 28 05"},
    {"write_env_raw_record", "devname: 'abc' env_raw: '\\001\\002' env_raw: '\\003'",
     "5A 03 61 62 63 6A 02 01 02 6A 01 03"},
    {"write_env_temp_thresholds", "max_temp_diff: 10 sensor_id: 5 sensor_id: 300 sensor_name: 'abc'",
     "50 0A 60 05 60 AC 02 6A 03 61 62 63"},
    {"write_syslog_thresholds_done", "err_code: 3", "20 03"},
    {"log_env_sensor_info", "version: 1 sensor_type: 1 sensor_id: 4 value: -5 scale: -1",
     "08 01 40 01 48 04 58 FB FF FF FF 0F 60 FF FF FF FF 0F"},
    {"log_env_sensor_info", "value: -2147483648", "58 80 80 80 80 08"},
    {"log_bulk_env_sensor_info", "value: 1 value: -1 scale: -3", "60 01 60 FF FF FF FF 0F 68 FD FF FF FF 0F"},
    {"log_bulk_env_sensor_info_done", "sensor_type: 2 ret_errors: 0 ret_errors: 5", "30 02 38 00 38 05"},
    {"log_bulk_env_sensor_info_done", "ret_errors: 18446744073709551615", "38 FF FF FF FF FF FF FF FF FF 01"},
    {"log_uptime", "version: 1 client_id: 2 seq_num: 3 write_interval: 60", "08 01 28 02 38 03 50 3C"},
    {"log_syslog", "svc_type: 4 severity: 1 data: 'abc'", "40 04 58 01 6A 03 61 62 63"},
    {"log_str", "data: 'abc'", "62 03 61 62 63"},
    {"log_diag_record", "err_code: 300 last_test_exec_ts: 2 last_test_pass_ts: 1", "68 AC 02 80 01 02 98 01 01"},
    {"log_diag_record_done", "rec_type: 12", "30 0C"},
};

std::string from_hex(std::string_view hex)
{
    std::string out;
    for (size_t i = 0; i < hex.size(); i += 3) {
        out += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    }
    return out;
}

TEST(DifferentialWorkedExamples, BothCodecsWriteTheHandWorkedBytes)
{
    for (const auto &row : worked_examples) {
        SCOPED_TRACE(std::string(row.record) + " {" + row.text + "}");
        const message_ops *ops = mivo_catalogue::find(row.record);
        const Descriptor *type = mivo_test::schema_message(row.record);
        ASSERT_TRUE(ops && type);
        auto message = mivo_test::new_message(type);
        ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(row.text, message.get()));
        const std::string expected = from_hex(row.hex);
        EXPECT_EQ(ours_from_theirs(message->SerializeAsString(), type), expected);
        for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            const round_trip ours = through_ours(*ops, expected, flags);
            EXPECT_EQ(ours.rc, MIVO_NO_ERROR);
            EXPECT_EQ(ours.bytes, expected) << "flags " << flags;
        }
    }
}

} // namespace
