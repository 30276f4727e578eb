// The entity-identifier library on its own and as a member of a catalogue
// record: hand-worked bytes, merging of repeated occurrences, and memory.
#include <gtest/gtest.h>

#include "mivo_tesk_eid_init.h"
#include "unit_support.hpp"

namespace {

using namespace unit;

bytes encode_eid(const mivo_tesk_eid_st &eid) { return encode(&mivo_tesk_eid_st_encode_ext, eid); }

mivo_tesk_entity_tsi_st tsi(mivo_tesk_entity_type_en type)
{
    mivo_tesk_entity_tsi_st t;
    mivo_tesk_entity_tsi_st_init(&t);
    t._type = type;
    t._have_type = 1;
    return t;
}

struct eid_example {
    const char *label;
    std::function<void(mivo_tesk_eid_st &)> fill;
    const char *wire;
};

const mivo_tesk_entity_tsi_st chassis_with_sub_type = [] {
    auto t = tsi(mivo_TESK_ENTITY_TYPE_CHASSIS);
    t._sub_type._subtype_chassis = static_cast<mivo_tesk_entity_subtype_en>(5);
    t._sub_type._have_subtype_chassis = 1;
    t._have_sub_type = 1;
    t._instance = 7;
    t._have_instance = 1;
    return t;
}();
const mivo_tesk_entity_tsi_st chassis = tsi(mivo_TESK_ENTITY_TYPE_CHASSIS);

const eid_example eid_examples[] = {
    {"defaults", [](auto &) {}, ""},
    {"version", [](auto &e) { e._version = 1; e._have_version = 1; }, "08 01"},
    {"version_flag_clear", [](auto &e) { e._version = 1; }, ""},
    {"all_numbers", [](auto &e) {
         e._version = 1; e._rack_num = 2; e._slot_num = 300; e._inst_num = 0; e._num_tsi = 1;
         e._have_version = e._have_rack_num = e._have_slot_num = e._have_inst_num = e._have_num_tsi = 1;
     }, "08 01 10 02 18 AC 02 20 00 28 01"},
    {"one_tsi", [](auto &e) { e._tsi = &chassis; e._tsi_count = 1; e._have_tsi = 1; }, "32 02 08 03"},
    {"tsi_flag_clear", [](auto &e) { e._tsi = &chassis; e._tsi_count = 1; }, ""},
    {"tsi_with_sub_type", [](auto &e) {
         e._version = 1; e._have_version = 1;
         e._tsi = &chassis_with_sub_type; e._tsi_count = 1; e._have_tsi = 1;
     }, "08 01 32 08 08 03 12 02 18 05 18 07"},
};

void PrintTo(const eid_example &e, std::ostream *os) { *os << e.label; }

class EidExample : public ::testing::TestWithParam<eid_example> {};

TEST_P(EidExample, EncodesAndRoundTrips)
{
    const auto &ex = GetParam();
    mivo_tesk_eid_st eid;
    mivo_tesk_eid_st_init(&eid);
    ex.fill(eid);
    const bytes wire = encode_eid(eid);
    EXPECT_EQ(to_hex(wire), to_hex(hex(ex.wire)));

    counting_allocator heap;
    mivo_tesk_eid_st back;
    mivo_tesk_eid_st_init(&back);
    ASSERT_EQ(mivo_tesk_eid_st_decode_ext(&back, wire.data(), wire.size(), alloc_cb, &heap, MIVO_FLAGS_NONE),
              MIVO_NO_ERROR);
    EXPECT_EQ(to_hex(encode_eid(back)), to_hex(wire));
    mivo_tesk_eid_st_free_ext(&back, free_cb, &heap, MIVO_FLAGS_NONE);
    EXPECT_EQ(back._tsi, nullptr);
    EXPECT_EQ(back._tsi_count, 0u);
    expect_no_leak(heap);
}

INSTANTIATE_TEST_SUITE_P(Identifier, EidExample, ::testing::ValuesIn(eid_examples),
                         [](const auto &info) { return std::string(info.param.label); });

TEST(EntityIdentifier, PopulatedRoundTripKeepsEveryMember)
{
    mivo_tesk_entity_tsi_st chain[2] = {chassis_with_sub_type, tsi(mivo_TESK_ENTITY_TYPE_CPU)};
    chain[1]._sub_type._subtype_cpu = static_cast<mivo_tesk_entity_subtype_en>(0xFFFFFFFF);
    chain[1]._sub_type._have_subtype_cpu = 1;
    chain[1]._have_sub_type = 1;
    mivo_tesk_eid_st eid;
    mivo_tesk_eid_st_init(&eid);
    eid._slot_num = 9;
    eid._have_slot_num = 1;
    eid._tsi = chain;
    eid._tsi_count = 2;
    eid._have_tsi = 1;

    const bytes wire = encode_eid(eid);
    counting_allocator heap;
    mivo_tesk_eid_st back;
    mivo_tesk_eid_st_init(&back);
    ASSERT_EQ(mivo_tesk_eid_st_decode_ext(&back, wire.data(), wire.size(), alloc_cb, &heap, MIVO_FLAGS_NONE),
              MIVO_NO_ERROR);
    EXPECT_EQ(heap.sizes(), std::vector<size_t>{2 * sizeof(mivo_tesk_entity_tsi_st)});
    ASSERT_EQ(back._tsi_count, 2u);
    EXPECT_EQ(static_cast<uint32_t>(back._tsi[0]._sub_type._subtype_chassis), 5u);
    EXPECT_EQ(static_cast<uint32_t>(back._tsi[1]._sub_type._subtype_cpu), 0xFFFFFFFFu);
    EXPECT_FALSE(back._tsi[1]._sub_type._have_subtype_chassis || back._tsi[1]._have_instance);
    EXPECT_EQ(to_hex(encode_eid(back)), to_hex(wire));

    // As a member of a request it travels unchanged, both ways.
    mivo_mgbl_request request, request_back;
    mivo_mgbl_request_init(&request);
    request._src_eid = eid;
    const bytes message = encode(&mivo_mgbl_request_encode_ext, request);
    EXPECT_EQ(message.size(), wire.size() + 2); // key 22, one length byte
    EXPECT_EQ(to_hex(message).substr(6), to_hex(wire));
    ASSERT_EQ(mivo_mgbl_request_decode_ext(&request_back, message.data(), message.size(), alloc_cb, &heap,
                                           MIVO_FLAGS_NONE),
              MIVO_NO_ERROR);
    EXPECT_TRUE(request_back._have_src_eid);
    EXPECT_EQ(to_hex(encode_eid(request_back._src_eid)), to_hex(wire));

    mivo_mgbl_request_free_ext(&request_back, free_cb, &heap, MIVO_FLAGS_NONE);
    mivo_tesk_eid_st_free_ext(&back, free_cb, &heap, MIVO_FLAGS_NONE);
    expect_no_leak(heap);
}

TEST(EntityIdentifier, ReportsNoFragments)
{
    mivo_tesk_eid_st eid;
    mivo_tesk_eid_st_init(&eid);
    eid._version = 1;
    eid._have_version = 1;
    uint8_t buf[4];
    mivo_bytes frags[2] = {{nullptr, 77}, {nullptr, 77}};
    unsigned count = 2;
    EXPECT_EQ(mivo_tesk_eid_st_encode_ext(&eid, buf, sizeof buf, frags, &count, MIVO_FLAG_SHARED), 2u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(frags[0].size, 77u);
    EXPECT_EQ(to_hex(buf, 2), "08 01");
}

struct merge_case {
    const char *label;
    const char *request; // a whole mivo_mgbl_request
    int rc;
    unsigned tsi_count;
    bool have_version;
};

const merge_case merge_cases[] = {
    // A second occurrence merges into the first.
    {"second_occurrence_adds_version", "1A 04 32 02 08 03 1A 02 08 01", MIVO_NO_ERROR, 1, true},
    {"second_occurrence_first_version", "1A 02 08 01 1A 04 32 02 08 03", MIVO_NO_ERROR, 1, true},
    // ... but a second run of _tsi, in either occurrence, is refused.
    {"second_tsi_run_across_occurrences", "1A 04 32 02 08 03 1A 04 32 02 08 04", MIVO_ERROR_GARBLED, 1, false},
    {"second_tsi_run_within", "1A 0A 32 02 08 03 08 01 32 02 08 04", MIVO_ERROR_GARBLED, 1, true},
    // Half decoded: the array is allocated, then an element is garbled.
    {"garbled_tsi_element", "1A 07 32 02 08 03 32 01 80", MIVO_ERROR_GARBLED, 2, false},
};

void PrintTo(const merge_case &c, std::ostream *os) { *os << c.label; }

class EidMerge : public ::testing::TestWithParam<merge_case> {};

TEST_P(EidMerge, ResultAndNoLeak)
{
    const auto &c = GetParam();
    const bytes in = hex(c.request);
    counting_allocator heap;
    mivo_mgbl_request r;
    EXPECT_EQ(mivo_mgbl_request_decode_ext(&r, in.data(), in.size(), alloc_cb, &heap, MIVO_FLAGS_NONE), c.rc);
    EXPECT_EQ(r._tgt_eid._tsi_count, c.tsi_count);
    EXPECT_EQ(static_cast<bool>(r._tgt_eid._have_version), c.have_version);
    if (c.tsi_count > 0) {
        EXPECT_EQ(r._tgt_eid._tsi[0]._type, mivo_TESK_ENTITY_TYPE_CHASSIS);
    }
    mivo_mgbl_request_free_ext(&r, free_cb, &heap, MIVO_FLAGS_NONE);
    mivo_mgbl_request_free_ext(&r, free_cb, &heap, MIVO_FLAGS_NONE); // released twice: nothing more
    expect_no_leak(heap);
}

INSTANTIATE_TEST_SUITE_P(Identifier, EidMerge, ::testing::ValuesIn(merge_cases),
                         [](const auto &info) { return std::string(info.param.label); });

TEST(EntityIdentifier, DuplicateOwnsItsChainAndSurvivesFailure)
{
    const mivo_tesk_entity_tsi_st chain[2] = {chassis_with_sub_type, chassis};
    mivo_mgbl_request source, copy;
    mivo_mgbl_request_init(&source);
    source._tgt_eid._tsi = chain;
    source._tgt_eid._tsi_count = 2;
    source._tgt_eid._have_tsi = 1;
    source._have_tgt_eid = 1;

    counting_allocator heap;
    ASSERT_EQ(mivo_mgbl_request_duplicate(&copy, &source, alloc_cb, &heap), MIVO_NO_ERROR);
    EXPECT_TRUE(heap.owns(copy._tgt_eid._tsi));
    EXPECT_EQ(to_hex(encode(&mivo_mgbl_request_encode_ext, copy)), to_hex(encode(&mivo_mgbl_request_encode_ext, source)));
    mivo_mgbl_request_free_ext(&copy, free_cb, &heap, MIVO_FLAGS_NONE);

    counting_allocator failing;
    failing.fail_at(1);
    EXPECT_EQ(mivo_mgbl_request_duplicate(&copy, &source, alloc_cb, &failing), MIVO_ERROR_ALLOC_FAILED);
    EXPECT_TRUE(copy._have_tgt_eid); // the member's flag is copied whatever the identifier's copy returned
    EXPECT_EQ(copy._tgt_eid._tsi, nullptr);
    EXPECT_EQ(copy._tgt_eid._tsi_count, 0u);
    EXPECT_FALSE(copy._tgt_eid._have_tsi);
    mivo_mgbl_request_free_ext(&copy, free_cb, &failing, MIVO_FLAGS_NONE);

    mivo_tesk_eid_st eid_copy;
    EXPECT_EQ(mivo_tesk_eid_st_duplicate(&eid_copy, &source._tgt_eid, nullptr, nullptr), MIVO_ERROR_ALLOC_FAILED);
    EXPECT_EQ(eid_copy._tsi, nullptr);
    EXPECT_EQ(heap.live() + failing.live(), 0u);
    EXPECT_EQ(heap.misuses() + failing.misuses(), 0u);
}

} // namespace
