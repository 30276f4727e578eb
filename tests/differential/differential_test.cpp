// Our codec against libprotobuf reading obfl_catalogue.proto, an independent
// description of the same wire form. Every record is checked in both
// directions on seeded random messages, and the bridge between the two
// representations is itself generated from the .proto, not from our
// catalogue.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/unknown_field_set.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "counting_allocator.hpp"
#include "message_table.hpp"
#include "pb_bridge.hpp"
#include "pb_corpus.hpp"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::util::MessageDifferencer;
using mivo_test::counting_allocator;

// Per record and per test; each test draws its own random stream.
constexpr uint64_t kCases = 500;

// ---- A minimal wire reader of our own, so that the checks do not lean on the
// library's primitives.

struct field_span {
    uint64_t number;
    size_t begin; // the key's first byte
    size_t end;   // one past the value
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
    size_t pos = 0;
    while (pos < s.size()) {
        const size_t begin = pos;
        uint64_t key = 0, value = 0;
        EXPECT_TRUE(read_varint(s, pos, key));
        switch (key & 7) {
        case 0: EXPECT_TRUE(read_varint(s, pos, value)); break;
        case 1: pos += 8; break;
        case 2:
            EXPECT_TRUE(read_varint(s, pos, value));
            pos += value;
            break;
        case 5: pos += 4; break;
        default: ADD_FAILURE() << "wire type " << (key & 7); return fields;
        }
        EXPECT_LE(pos, s.size());
        fields.push_back({key >> 3, begin, std::min(pos, s.size())});
    }
    return fields;
}

// libprotobuf sign-extends a negative int32 to a ten-byte varint; ours sends
// its 32-bit pattern in five. Rewrites theirs into ours, leaving every other
// byte alone, so the two encodings can be compared byte for byte.
std::string with_short_negative_int32(std::string_view theirs, const Descriptor *d)
{
    std::string out;
    for (const field_span &f : split_fields(theirs)) {
        const FieldDescriptor *fd = d->FindFieldByNumber(static_cast<int>(f.number));
        size_t pos = f.begin;
        uint64_t key = 0, value = 0;
        read_varint(theirs, pos, key);
        if (fd && fd->type() == FieldDescriptor::TYPE_INT32 && (key & 7) == 0) {
            read_varint(theirs, pos, value);
            out += varint(key);
            out += varint(static_cast<uint32_t>(value));
        } else {
            out.append(theirs.substr(f.begin, f.end - f.begin));
        }
    }
    return out;
}

// Random fields our records do not define, with valid payloads: field 0 and
// numbers above the record's last, wire types 0, 1, 2 and 5.
std::string unknown_field(int field_count, std::mt19937_64 &rng)
{
    const uint64_t numbers[] = {0, uint64_t(field_count) + 1, uint64_t(field_count) + 2, 20, 1000, (1u << 29) - 1};
    const unsigned types[] = {0, 1, 2, 5};
    const uint64_t number = numbers[rng() % std::size(numbers)];
    const unsigned type = types[rng() % std::size(types)];
    std::string out = varint(number << 3 | type);
    auto raw = [&](size_t n) {
        for (size_t i = 0; i < n; ++i) {
            out += static_cast<char>(rng());
        }
    };
    switch (type) {
    case 0: out += varint(rng() >> (rng() % 64)); break;
    case 1: raw(8); break;
    case 2: {
        const size_t n = rng() % 24;
        out += varint(n);
        raw(n);
        break;
    }
    default: raw(4); break;
    }
    return out;
}

// Splices unknown fields in at random field boundaries, never inside the run
// of a repeated member (a broken run is refused by design).
std::string splice_unknown(std::string_view ours, int field_count, std::mt19937_64 &rng)
{
    const auto fields = split_fields(ours);
    std::string out;
    for (size_t i = 0; i <= fields.size(); ++i) {
        const bool inside_run = i > 0 && i < fields.size() && fields[i - 1].number == fields[i].number;
        while (!inside_run && rng() % 3 == 0) {
            out += unknown_field(field_count, rng);
        }
        if (i < fields.size()) {
            out.append(ours.substr(fields[i].begin, fields[i].end - fields[i].begin));
        }
    }
    return out;
}

::testing::AssertionResult same_message(const Message &expected, const Message &actual)
{
    std::string report;
    MessageDifferencer differencer;
    differencer.ReportDifferencesToString(&report);
    if (differencer.Compare(expected, actual)) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << expected.GetTypeName() << " differs:\n" << report.substr(0, 2000);
}

const mivo_test::bridge_ops *find_bridge(std::string_view name)
{
    for (const auto &b : mivo_test::bridged_messages()) {
        if (b.name == name) {
            return &b;
        }
    }
    return nullptr;
}

std::string concatenate(const std::vector<mivo_bytes> &frags)
{
    std::string out;
    for (const mivo_bytes &f : frags) {
        if (f.size) {
            out.append(reinterpret_cast<const char *>(f.data), f.size);
        }
    }
    return out;
}

class Differential : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        ops_ = mivo_test::find_message(GetParam());
        bridge_ = find_bridge(GetParam());
        ASSERT_NE(ops_, nullptr) << GetParam();
        ASSERT_NE(bridge_, nullptr) << GetParam();
    }

    // Measures, then writes into a buffer of exactly that size (a vector, so
    // that a sanitizer sees a write past it). A buffer one byte short must
    // still report the full length and leave the byte beyond it alone.
    std::string encode(const void *record) const
    {
        const size_t size = ops_->encode(record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
        std::vector<uint8_t> out(size, 0xCC);
        if (size > 0) {
            EXPECT_EQ(ops_->encode(record, out.data(), size - 1, nullptr, nullptr, MIVO_FLAGS_NONE), size);
            EXPECT_EQ(out[size - 1], 0xCC) << "written beyond a short buffer";
        }
        EXPECT_EQ(ops_->encode(record, out.data(), size, nullptr, nullptr, MIVO_FLAGS_NONE), size);
        return std::string(out.begin(), out.end());
    }

    // With MIVO_FLAG_SHARED and a fragment list: learns the piece count with
    // a capacity of 0, then gathers the whole message from the pieces.
    std::string encode_gathered(const void *record) const
    {
        unsigned pieces = 0;
        const size_t size = ops_->encode(record, nullptr, 0, nullptr, &pieces, MIVO_FLAG_SHARED);
        std::string buffer(size, '\0');
        std::vector<mivo_bytes> frags(pieces);
        unsigned capacity = pieces;
        EXPECT_EQ(ops_->encode(record, reinterpret_cast<uint8_t *>(buffer.data()), size, frags.data(), &capacity,
                               MIVO_FLAG_SHARED),
                  size);
        EXPECT_EQ(capacity, pieces);
        return concatenate(frags);
    }

    int decode(mivo_test::record_storage &record, std::string_view bytes, counting_allocator &alloc,
               mivo_flags flags) const
    {
        return ops_->decode(&record, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(),
                            &counting_allocator::allocate, &alloc, flags);
    }

    void release(mivo_test::record_storage &record, counting_allocator &alloc, mivo_flags flags) const
    {
        ops_->release(&record, &counting_allocator::release, &alloc, flags);
    }

    std::unique_ptr<Message> read(const mivo_test::record_storage &record) const
    {
        auto m = mivo_test::new_message(GetParam());
        bridge_->read(&record, *m);
        return m;
    }

    std::string ours_from_theirs(const Message &m) const
    {
        return with_short_negative_int32(m.SerializeAsString(), m.GetDescriptor());
    }

    const mivo_test::message_ops *ops_ = nullptr;
    const mivo_test::bridge_ops *bridge_ = nullptr;
};

// libprotobuf -> ours: decode, compare, re-encode byte for byte (plain and
// gathered from shared fragments), release without a leak.
TEST_P(Differential, TheirEncodingDecodesAndReencodesUnchanged)
{
    for (uint64_t seed = 0; seed < kCases; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const auto message = mivo_test::random_message(GetParam(), seed);
        const std::string theirs = message->SerializeAsString();
        const std::string expected = ours_from_theirs(*message);
        for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            counting_allocator alloc;
            mivo_test::record_storage record;
            ASSERT_EQ(decode(record, theirs, alloc, flags), MIVO_NO_ERROR) << "flags " << flags;
            EXPECT_TRUE(same_message(*message, *read(record))) << "flags " << flags;
            EXPECT_EQ(flags == MIVO_FLAG_SHARED ? encode_gathered(&record) : encode(&record), expected)
                << "flags " << flags;
            release(record, alloc, flags);
            EXPECT_EQ(alloc.live(), 0u) << "flags " << flags;
            EXPECT_EQ(alloc.misuses(), 0u) << "flags " << flags;
        }
    }
}

// ours -> libprotobuf: a record filled from a random message, with leftovers
// in its absent members that must stay off the wire, encodes to bytes that
// libprotobuf parses back to that message with nothing unknown.
TEST_P(Differential, OurEncodingParsesInLibprotobuf)
{
    for (uint64_t seed = 0; seed < kCases; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const auto message = mivo_test::random_message(GetParam(), seed + kCases);
        mivo_test::arena arena;
        mivo_test::absent_noise noise(seed);
        mivo_test::record_storage record;
        bridge_->fill(*message, &record, arena, seed % 4 ? &noise : nullptr);
        ASSERT_TRUE(same_message(*message, *read(record))) << "the bridge itself";

        const std::string ours = encode(&record);
        auto parsed = mivo_test::new_message(GetParam());
        ASSERT_TRUE(parsed->ParseFromString(ours));
        EXPECT_EQ(parsed->GetReflection()->GetUnknownFields(*parsed).field_count(), 0);
        EXPECT_TRUE(same_message(*message, *parsed));
        EXPECT_EQ(ours, ours_from_theirs(*message));
    }
}

// Unknown fields spliced between the fields of our encoding change nothing.
TEST_P(Differential, UnknownFieldsAreSkipped)
{
    std::mt19937_64 rng(0x5eed);
    for (uint64_t seed = 0; seed < kCases; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const auto message = mivo_test::random_message(GetParam(), seed + 2 * kCases);
        mivo_test::arena arena;
        mivo_test::record_storage filled;
        bridge_->fill(*message, &filled, arena, nullptr);
        const std::string spliced = splice_unknown(encode(&filled), bridge_->field_count, rng);

        counting_allocator alloc;
        mivo_test::record_storage record;
        ASSERT_EQ(decode(record, spliced, alloc, MIVO_FLAGS_NONE), MIVO_NO_ERROR);
        EXPECT_TRUE(same_message(*message, *read(record)));
        release(record, alloc, MIVO_FLAGS_NONE);
        EXPECT_EQ(alloc.live(), 0u);
    }
}

// A copy reads like its source and owns all of its memory: it survives the
// release of the source and the overwriting of the source's input (which a
// shared decode points into).
TEST_P(Differential, DuplicateOwnsEverything)
{
    for (uint64_t seed = 0; seed < kCases; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const auto message = mivo_test::random_message(GetParam(), seed + 3 * kCases);
        std::string input = message->SerializeAsString();
        const mivo_flags flags = seed % 2 ? MIVO_FLAG_SHARED : MIVO_FLAGS_NONE;

        counting_allocator alloc;
        mivo_test::record_storage source, copy;
        ASSERT_EQ(decode(source, input, alloc, flags), MIVO_NO_ERROR);
        ASSERT_EQ(ops_->duplicate(&copy, &source, &counting_allocator::allocate, &alloc), MIVO_NO_ERROR);
        release(source, alloc, flags);
        std::fill(input.begin(), input.end(), '\xA5');
        EXPECT_TRUE(same_message(*message, *read(copy)));
        release(copy, alloc, MIVO_FLAGS_NONE);
        EXPECT_EQ(alloc.live(), 0u);
        EXPECT_EQ(alloc.misuses(), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, Differential, ::testing::ValuesIn(mivo_test::catalogue_message_names()),
                         [](const auto &info) { return info.param; });

// Hand-worked encodings: pins the .proto itself, then checks that both
// encoders produce exactly these bytes and that ours decodes them back.
struct worked_example {
    const char *record;
    const char *text; // the message in libprotobuf's text format
    const char *hex;
};

const worked_example worked_examples[] = {
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

TEST(DifferentialWorkedExamples, BothEncodersWriteTheHandWorkedBytes)
{
    for (const worked_example &row : worked_examples) {
        SCOPED_TRACE(std::string(row.record) + " {" + row.text + "}");
        const auto *ops = mivo_test::find_message(row.record);
        const auto *bridge = find_bridge(row.record);
        ASSERT_TRUE(ops && bridge);
        auto message = mivo_test::new_message(row.record);
        ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(row.text, message.get()));
        const std::string expected = from_hex(row.hex);
        EXPECT_EQ(with_short_negative_int32(message->SerializeAsString(), message->GetDescriptor()), expected);

        mivo_test::arena arena;
        mivo_test::record_storage filled;
        bridge->fill(*message, &filled, arena, nullptr);
        std::string ours(ops->encode(&filled, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE), '\0');
        ops->encode(&filled, reinterpret_cast<uint8_t *>(ours.data()), ours.size(), nullptr, nullptr, MIVO_FLAGS_NONE);
        EXPECT_EQ(ours, expected);

        counting_allocator alloc;
        mivo_test::record_storage decoded;
        ASSERT_EQ(ops->decode(&decoded, reinterpret_cast<const uint8_t *>(expected.data()), expected.size(),
                              &counting_allocator::allocate, &alloc, MIVO_FLAGS_NONE),
                  MIVO_NO_ERROR);
        auto back = mivo_test::new_message(row.record);
        bridge->read(&decoded, *back);
        EXPECT_TRUE(same_message(*message, *back));
        ops->release(&decoded, &counting_allocator::release, &alloc, MIVO_FLAGS_NONE);
        EXPECT_EQ(alloc.live(), 0u);
    }
}

// The .proto, the bridge generated from it and our message table name the
// same 37 records, and the bridge's records have the table's sizes.
TEST(DifferentialLayout, ProtoBridgeAndMessageTableAgree)
{
    std::map<std::string, size_t> table;
    for (const auto &m : mivo_test::all_messages()) {
        table.emplace(std::string(m.name), m.record_size);
    }
    std::map<std::string, size_t> bridged;
    for (const auto &b : mivo_test::bridged_messages()) {
        bridged.emplace(std::string(b.name), b.record_size);
    }
    const auto names = mivo_test::catalogue_message_names();
    EXPECT_EQ(names.size(), 37u);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
    EXPECT_EQ(table.size(), 37u);
    EXPECT_EQ(bridged, table);
    for (const auto &name : names) {
        EXPECT_TRUE(table.count(name)) << name;
    }
}

} // namespace
