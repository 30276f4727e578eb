// This library against libprotobuf (heap and Arena), protobuf-c and nanopb on
// eight workloads, all contenders in one process. Compare them as ratios
// within one run (scripts/bench.sh does); absolute times on a shared machine
// mean little.
//
// Benchmarks are named <workload>/<operation>/<contender>. Every decoder is
// fed libprotobuf's encoding; every encoder encodes the record its own
// decoder made from it. Before anything is timed, each contender's encoding
// is decoded by every other contender and re-encoded, and must give that
// contender's own encoding back (nanopb packs repeated numbers, which this
// library refuses by design, so that one pairing is left out for W2 and W5).
#include <benchmark/benchmark.h>
#include <pb_decode.h>
#include <pb_encode.h>

#include <google/protobuf/util/message_differencer.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "mivo_obfl_mgr_def.h"
#include "obfl_catalogue.npb.h"
#include "obfl_catalogue.pb-c.h"
#include "obfl_catalogue.pb.h"

namespace {

using bytes_t = std::basic_string<uint8_t>;

// A bump allocator handed to our codec through the token: allocation is a
// pointer increment, release a no-op, and the arena is reset per iteration.
class bump_arena {
public:
    explicit bump_arena(size_t size) : memory_(new unsigned char[size]), size_(size) {}
    void reset() { used_ = 0; }
    static void *alloc(size_t size, void *token)
    {
        auto *a = static_cast<bump_arena *>(token);
        const size_t at = (a->used_ + 15) & ~size_t{15};
        if (at + size > a->size_) {
            return nullptr;
        }
        a->used_ = at + size;
        return a->memory_.get() + at;
    }
    static void free(void *, void *) {}

private:
    std::unique_ptr<unsigned char[]> memory_;
    size_t size_;
    size_t used_ = 0;
};

void *heap_alloc(size_t size, void *) { return std::malloc(size); }
void heap_free(void *p, void *) { std::free(p); }

constexpr size_t arena_size = 1 << 20;

// libprotobuf's Arena with a preallocated first block, its fastest regime.
struct pb_arena_block {
    std::unique_ptr<char[]> block{new char[arena_size]};
    google::protobuf::ArenaOptions options() const
    {
        google::protobuf::ArenaOptions o;
        o.initial_block = block.get();
        o.initial_block_size = arena_size;
        return o;
    }
};

// ---- the workloads, filled completely in libprotobuf ------------------------

void fill_eid(obfl::tesk_eid_st *eid, uint32_t rack)
{
    eid->set_version(1);
    eid->set_rack_num(rack);
    eid->set_slot_num(7);
    eid->set_inst_num(2);
    eid->set_num_tsi(1);
    auto *tsi = eid->add_tsi();
    tsi->set_type(3);
    tsi->mutable_sub_type()->set_subtype_chassis(40 + rack);
    tsi->set_instance(rack);
}

template <class M>
void fill_head(M &m)
{
    m.set_version(1);
    m.set_timestamp(1700000000);
    fill_eid(m.mutable_tgt_eid(), 1);
    fill_eid(m.mutable_src_eid(), 2);
    m.set_client_id(42);
    m.set_is_resend_msg(true);
    m.set_seq_num(123456);
}

std::string text(size_t n, const char *stem)
{
    std::string s;
    while (s.size() < n) {
        s += stem;
    }
    s.resize(n);
    return s;
}

std::string w1()
{
    obfl::log_syslog m;
    fill_head(m);
    m.set_svc_type(4);
    m.set_obfl_msg_id(77);
    m.set_obfl_msg_flags(0x11);
    m.set_severity(1);
    m.set_msg_tag(9);
    m.set_data(text(120, "%PLATFORM-ENVMON-2-TEMP_HIGH: inlet 0/RP0 reads 71 C, above 70 C. "));
    return m.SerializeAsString();
}

std::string w2()
{
    obfl::log_bulk_env_sensor_info m;
    fill_head(m);
    m.set_sensor_type(1);
    m.set_num_sensors(64);
    for (int i = 0; i < 64; ++i) {
        m.add_sensor_id(static_cast<uint32_t>(2000 + i * 13));
        m.add_adjust_type(static_cast<uint32_t>(i % 3));
        m.add_value(i % 2 ? -(i * 1337) : i * 1337);
        m.add_scale(i % 2 ? -3 : 2);
    }
    return m.SerializeAsString();
}

std::string w3(size_t data_size)
{
    obfl::mgbl_request_done m;
    m.set_version(1);
    m.set_timestamp(1700000000);
    m.set_err_code(0);
    m.set_r_msn(5);
    fill_eid(m.mutable_tgt_eid(), 1);
    m.set_set_type(3);
    m.set_last_response(true);
    m.set_incomplete_data(false);
    m.set_req_type(2);
    m.set_rec_type(7);
    m.set_num_records(64);
    m.set_length(data_size);
    std::string block(data_size, '\0');
    for (size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<char>(i * 31);
    }
    m.set_data(block);
    return m.SerializeAsString();
}

std::string w4()
{
    obfl::write_env_raw_record m;
    fill_head(m);
    m.set_ramsize_k(8388608);
    m.set_sw_ver("7.11.1.34I");
    m.set_fw_ver("1.22.0");
    m.set_devname("0/RP0/CPU0");
    m.set_state(2);
    for (int b = 0; b < 16; ++b) {
        std::string block(1024, '\0');
        for (size_t i = 0; i < block.size(); ++i) {
            block[i] = static_cast<char>(i * 7 + b);
        }
        m.add_env_raw(block);
    }
    return m.SerializeAsString();
}

std::string w5()
{
    obfl::write_env_temp_thresholds m;
    fill_head(m);
    m.set_sampling_freq(60);
    m.set_max_time_for_logging(3600);
    m.set_max_temp_diff(5);
    m.set_num_sensors(32);
    for (uint32_t i = 0; i < 32; ++i) {
        m.add_sensor_id(1000 + i * 37);
        m.add_sensor_name("0/RP0/TEMP_SENSOR_" + std::to_string(i));
    }
    return m.SerializeAsString();
}

std::string w6()
{
    obfl::mgbl_hello_done m;
    m.set_version(1);
    m.set_timestamp(1700000000);
    m.set_err_code(0x123456789ULL);
    m.set_r_msn(77);
    return m.SerializeAsString();
}

std::string w7()
{
    obfl::log_diag_record m;
    fill_head(m);
    m.set_svc_type(3);
    m.set_rec_type(4);
    m.set_test_name("OnlineDiagFabricLoopback");
    m.set_test_id(17);
    m.set_pass_fail(1);
    m.set_err_code(0);
    m.set_total_run_count(123456);
    m.set_consecutive_fail_count(2);
    m.set_last_test_exec_ts(1700000100);
    m.set_first_test_fail_ts(1699990000);
    m.set_last_test_fail_ts(1700000050);
    m.set_last_test_pass_ts(1700000100);
    return m.SerializeAsString();
}

std::string w8()
{
    obfl::mgbl_notify_locations m;
    m.set_version(1);
    m.set_timestamp(1700000000);
    m.set_primary_scope(2);
    m.set_num_locations(16);
    for (int i = 0; i < 16; ++i) {
        m.add_location_name("0/" + std::to_string(i) + "/CPU0");
    }
    m.set_ha_role(1);
    return m.SerializeAsString();
}

// ---- nanopb: the one callback member --------------------------------------

// request_done's _data: decoded into, and encoded from, a preallocated block.
struct npb_blob {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(1 << 17);
    size_t size = 0;
};

bool npb_blob_decode(pb_istream_t *stream, const pb_field_t *, void **arg)
{
    auto *b = static_cast<npb_blob *>(*arg);
    b->size = stream->bytes_left;
    return b->size <= b->bytes.size() && pb_read(stream, b->bytes.data(), b->size);
}

bool npb_blob_encode(pb_ostream_t *stream, const pb_field_t *field, void *const *arg)
{
    const auto *b = static_cast<const npb_blob *>(*arg);
    return pb_encode_tag_for_field(stream, field) && pb_encode_string(stream, b->bytes.data(), b->size);
}

template <class N>
void npb_for_decode(N &, npb_blob *)
{
}
template <class N>
void npb_for_encode(N &)
{
}
void npb_for_decode(obfl_mgbl_request_done &m, npb_blob *blob)
{
    m.data.funcs.decode = npb_blob_decode;
    m.data.arg = blob;
}
void npb_for_encode(obfl_mgbl_request_done &m) { m.data.funcs.encode = npb_blob_encode; }

// ---- one workload as every contender sees it --------------------------------

enum op_set : unsigned {
    everyday = 1,  // encode, measure + write, decode, duplicate
    gathered = 2,  // gather encode and shared decode, for byte-string workloads
};

template <class Rec, class Pb, class Pbc, class Npb>
struct contenders {
    size_t (*encode)(const Rec *, uint8_t *, size_t, mivo_bytes *, unsigned *, mivo_flags);
    int (*decode)(Rec *, const uint8_t *, size_t, mivo_alloc_t *, void *, mivo_flags);
    int (*duplicate)(Rec *, const Rec *, mivo_alloc_t *, void *);
    void (*release)(Rec *, mivo_free_t *, void *, mivo_flags);
    size_t (*pbc_size)(const Pbc *);
    size_t (*pbc_pack)(const Pbc *, uint8_t *);
    size_t (*pbc_pack_to_buffer)(const Pbc *, ProtobufCBuffer *);
    Pbc *(*pbc_unpack)(ProtobufCAllocator *, size_t, const uint8_t *);
    void (*pbc_free)(Pbc *, ProtobufCAllocator *);
    const pb_msgdesc_t *npb_fields;
};

// A protobuf-c output buffer that appends into preallocated memory.
struct pbc_flat_buffer {
    ProtobufCBuffer base{append};
    uint8_t *at;
    static void append(ProtobufCBuffer *b, size_t len, const uint8_t *data)
    {
        auto *self = reinterpret_cast<pbc_flat_buffer *>(b);
        std::memcpy(self->at, data, len);
        self->at += len;
    }
};

const uint8_t *u8(const std::string &s) { return reinterpret_cast<const uint8_t *>(s.data()); }

bool fail(const std::string &what)
{
    std::fprintf(stderr, "cross-check failed: %s\n", what.c_str());
    return false;
}

template <class Rec, class Pb, class Pbc, class Npb>
class workload {
public:
    workload(std::string name, std::string wire, contenders<Rec, Pb, Pbc, Npb> c, bool npb_packs)
        : name_(std::move(name)), wire_(std::move(wire)), c_(c), npb_packs_(npb_packs)
    {
    }

    // Decodes the reference bytes into every contender, encodes each back and
    // checks every encoding against every decoder.
    bool prepare()
    {
        if (!pb_.ParseFromString(wire_) ||
            c_.decode(&rec_, u8(wire_), wire_.size(), heap_alloc, nullptr, MIVO_FLAGS_NONE) != MIVO_NO_ERROR ||
            (pbc_ = c_.pbc_unpack(nullptr, wire_.size(), u8(wire_))) == nullptr || !npb_decode(wire_, npb_)) {
            return fail(name_ + ": a contender cannot decode the reference");
        }
        encodings_[0] = ours_encode(rec_);
        encodings_[1] = pb_.SerializeAsString();
        encodings_[2] = pbc_encode(pbc_);
        encodings_[3] = npb_encode(npb_);
        static const char *const who[] = {"ours", "libprotobuf", "protobuf-c", "nanopb"};
        for (int from = 0; from < 4; ++from) {
            for (int to = 0; to < 4; ++to) {
                if (from == 3 && to == 0 && npb_packs_) {
                    continue;
                }
                const std::string &in = encodings_[from];
                std::string again;
                bool ok = true;
                if (to == 0) {
                    Rec r;
                    ok = c_.decode(&r, u8(in), in.size(), heap_alloc, nullptr, MIVO_FLAGS_NONE) == MIVO_NO_ERROR;
                    again = ok ? ours_encode(r) : "";
                    c_.release(&r, heap_free, nullptr, MIVO_FLAGS_NONE);
                } else if (to == 1) {
                    Pb m;
                    ok = m.ParseFromString(in);
                    again = m.SerializeAsString();
                } else if (to == 2) {
                    Pbc *m = c_.pbc_unpack(nullptr, in.size(), u8(in));
                    ok = m != nullptr;
                    again = ok ? pbc_encode(m) : "";
                    if (ok) {
                        c_.pbc_free(m, nullptr);
                    }
                } else {
                    auto m = std::make_unique<Npb>();
                    ok = npb_decode(in, *m);
                    again = ok ? npb_encode(*m) : "";
                }
                if (!ok || again != encodings_[to]) {
                    return fail(name_ + ": " + who[from] + "'s bytes, read by " + who[to]);
                }
            }
        }
        // A copy must encode like its source.
        Rec copy;
        if (c_.duplicate(&copy, &rec_, heap_alloc, nullptr) != MIVO_NO_ERROR || ours_encode(copy) != encodings_[0]) {
            return fail(name_ + ": duplicate");
        }
        c_.release(&copy, heap_free, nullptr, MIVO_FLAGS_NONE);
        out_.assign(encodings_[1].size() + encodings_[0].size() + 1024, 0);
        return true;
    }

    void register_all(unsigned ops)
    {
        if (ops & everyday) {
            reg("encode/ours", &workload::encode_ours);
            reg("encode/libprotobuf", &workload::encode_pb);
            reg("encode/protobuf-c", &workload::encode_pbc);
            reg("encode/nanopb", &workload::encode_npb);
            reg("encode/memcpy", &workload::encode_memcpy);
            reg("measure_write/ours", &workload::measure_write_ours);
            reg("decode/ours", &workload::decode_ours);
            reg("decode/libprotobuf", &workload::decode_pb);
            reg("decode/protobuf-c", &workload::decode_pbc);
            reg("decode/nanopb", &workload::decode_npb);
            reg("decode_arena/ours", &workload::decode_ours_arena);
            reg("decode_arena/libprotobuf", &workload::decode_pb_arena);
            reg("duplicate/ours", &workload::duplicate_ours);
            reg("duplicate/libprotobuf", &workload::duplicate_pb);
            reg("duplicate_arena/ours", &workload::duplicate_ours_arena);
            reg("duplicate_arena/libprotobuf", &workload::duplicate_pb_arena);
        }
        if (ops & gathered) {
            reg("gather/ours", &workload::gather_ours);
            reg("gather/libprotobuf", &workload::gather_pb);
            reg("gather/protobuf-c", &workload::gather_pbc);
            reg("decode_shared/ours", &workload::decode_ours_shared);
            if (!(ops & everyday)) { // the peers' decode, for comparison
                reg("decode/libprotobuf", &workload::decode_pb);
                reg("decode/protobuf-c", &workload::decode_pbc);
            }
        }
    }

    ~workload()
    {
        c_.release(&rec_, heap_free, nullptr, MIVO_FLAGS_NONE);
        if (pbc_ != nullptr) {
            c_.pbc_free(pbc_, nullptr);
        }
    }

private:
    using method = void (workload::*)(benchmark::State &);

    void reg(const char *what, method m)
    {
        benchmark::RegisterBenchmark((name_ + "/" + what).c_str(), [this, m](benchmark::State &st) {
            (this->*m)(st);
            st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * wire_.size()));
        });
    }

    std::string ours_encode(const Rec &r) const
    {
        std::string s(c_.encode(&r, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE), '\0');
        c_.encode(&r, reinterpret_cast<uint8_t *>(s.data()), s.size(), nullptr, nullptr, MIVO_FLAGS_NONE);
        return s;
    }
    std::string pbc_encode(const Pbc *m) const
    {
        std::string s(c_.pbc_size(m), '\0');
        c_.pbc_pack(m, reinterpret_cast<uint8_t *>(s.data()));
        return s;
    }
    bool npb_decode(const std::string &in, Npb &m)
    {
        m = Npb{};
        npb_for_decode(m, &blob_);
        pb_istream_t is = pb_istream_from_buffer(u8(in), in.size());
        return pb_decode(&is, c_.npb_fields, &m);
    }
    std::string npb_encode(Npb &m) const
    {
        npb_for_encode(m);
        size_t n = 0;
        pb_get_encoded_size(&n, c_.npb_fields, &m);
        std::string s(n, '\0');
        pb_ostream_t os = pb_ostream_from_buffer(reinterpret_cast<uint8_t *>(s.data()), n);
        pb_encode(&os, c_.npb_fields, &m);
        return s;
    }

    // -- encode: ours into a large enough buffer; the peers size + serialize
    void encode_ours(benchmark::State &st)
    {
        for (auto _ : st) {
            benchmark::DoNotOptimize(c_.encode(&rec_, out_.data(), out_.size(), nullptr, nullptr, MIVO_FLAGS_NONE));
            benchmark::ClobberMemory();
        }
    }
    void measure_write_ours(benchmark::State &st)
    {
        for (auto _ : st) {
            const size_t n = c_.encode(&rec_, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
            benchmark::DoNotOptimize(c_.encode(&rec_, out_.data(), n, nullptr, nullptr, MIVO_FLAGS_NONE));
            benchmark::ClobberMemory();
        }
    }
    void encode_pb(benchmark::State &st)
    {
        for (auto _ : st) {
            const size_t n = pb_.ByteSizeLong();
            benchmark::DoNotOptimize(n);
            benchmark::DoNotOptimize(pb_.SerializeWithCachedSizesToArray(out_.data()));
            benchmark::ClobberMemory();
        }
    }
    void encode_pbc(benchmark::State &st)
    {
        for (auto _ : st) {
            benchmark::DoNotOptimize(c_.pbc_size(pbc_));
            benchmark::DoNotOptimize(c_.pbc_pack(pbc_, out_.data()));
            benchmark::ClobberMemory();
        }
    }
    void encode_npb(benchmark::State &st)
    {
        npb_for_encode(npb_);
        for (auto _ : st) {
            size_t n = 0;
            pb_get_encoded_size(&n, c_.npb_fields, &npb_);
            pb_ostream_t os = pb_ostream_from_buffer(out_.data(), n);
            benchmark::DoNotOptimize(pb_encode(&os, c_.npb_fields, &npb_));
            benchmark::ClobberMemory();
        }
    }
    // The floor: copying our encoding's bytes.
    void encode_memcpy(benchmark::State &st)
    {
        const std::string &src = encodings_[0];
        for (auto _ : st) {
            std::memcpy(out_.data(), src.data(), src.size());
            benchmark::ClobberMemory();
        }
    }

    // -- decode + release
    void decode_ours(benchmark::State &st)
    {
        Rec r;
        for (auto _ : st) {
            benchmark::DoNotOptimize(c_.decode(&r, u8(wire_), wire_.size(), heap_alloc, nullptr, MIVO_FLAGS_NONE));
            c_.release(&r, heap_free, nullptr, MIVO_FLAGS_NONE);
        }
    }
    void decode_ours_shared(benchmark::State &st)
    {
        Rec r;
        for (auto _ : st) {
            benchmark::DoNotOptimize(c_.decode(&r, u8(wire_), wire_.size(), heap_alloc, nullptr, MIVO_FLAG_SHARED));
            c_.release(&r, heap_free, nullptr, MIVO_FLAG_SHARED);
        }
    }
    void decode_ours_arena(benchmark::State &st)
    {
        bump_arena arena(arena_size);
        Rec r;
        for (auto _ : st) {
            arena.reset();
            benchmark::DoNotOptimize(c_.decode(&r, u8(wire_), wire_.size(), bump_arena::alloc, &arena, MIVO_FLAGS_NONE));
            c_.release(&r, bump_arena::free, &arena, MIVO_FLAGS_NONE);
        }
    }
    void decode_pb(benchmark::State &st)
    {
        for (auto _ : st) {
            Pb m;
            benchmark::DoNotOptimize(m.ParseFromArray(wire_.data(), static_cast<int>(wire_.size())));
        }
    }
    void decode_pb_arena(benchmark::State &st)
    {
        pb_arena_block block;
        for (auto _ : st) {
            google::protobuf::Arena arena(block.options());
            Pb *m = google::protobuf::Arena::CreateMessage<Pb>(&arena);
            benchmark::DoNotOptimize(m->ParseFromArray(wire_.data(), static_cast<int>(wire_.size())));
        }
    }
    void decode_pbc(benchmark::State &st)
    {
        for (auto _ : st) {
            Pbc *m = c_.pbc_unpack(nullptr, wire_.size(), u8(wire_));
            benchmark::DoNotOptimize(m);
            c_.pbc_free(m, nullptr);
        }
    }
    // nanopb decodes into a static record: nothing to allocate or release.
    void decode_npb(benchmark::State &st)
    {
        auto m = std::make_unique<Npb>();
        npb_for_decode(*m, &blob_);
        for (auto _ : st) {
            pb_istream_t is = pb_istream_from_buffer(u8(wire_), wire_.size());
            benchmark::DoNotOptimize(pb_decode(&is, c_.npb_fields, m.get()));
            benchmark::ClobberMemory();
        }
    }

    // -- duplicate + release
    void duplicate_ours(benchmark::State &st)
    {
        Rec r;
        for (auto _ : st) {
            benchmark::DoNotOptimize(c_.duplicate(&r, &rec_, heap_alloc, nullptr));
            c_.release(&r, heap_free, nullptr, MIVO_FLAGS_NONE);
        }
    }
    void duplicate_ours_arena(benchmark::State &st)
    {
        bump_arena arena(arena_size);
        Rec r;
        for (auto _ : st) {
            arena.reset();
            benchmark::DoNotOptimize(c_.duplicate(&r, &rec_, bump_arena::alloc, &arena));
            c_.release(&r, bump_arena::free, &arena, MIVO_FLAGS_NONE);
        }
    }
    void duplicate_pb(benchmark::State &st)
    {
        for (auto _ : st) {
            Pb m(pb_);
            benchmark::DoNotOptimize(&m);
        }
    }
    void duplicate_pb_arena(benchmark::State &st)
    {
        pb_arena_block block;
        for (auto _ : st) {
            google::protobuf::Arena arena(block.options());
            Pb *m = google::protobuf::Arena::CreateMessage<Pb>(&arena);
            m->CopyFrom(pb_);
            benchmark::DoNotOptimize(m);
        }
    }

    // -- gather: ours lists the byte strings in place; the peers' stream and
    // buffer interfaces copy every piece out.
    void gather_ours(benchmark::State &st)
    {
        mivo_bytes frags[64];
        for (auto _ : st) {
            unsigned count = 64;
            benchmark::DoNotOptimize(c_.encode(&rec_, out_.data(), out_.size(), frags, &count, MIVO_FLAG_SHARED));
            benchmark::DoNotOptimize(count);
            benchmark::ClobberMemory();
        }
    }
    void gather_pb(benchmark::State &st)
    {
        for (auto _ : st) {
            google::protobuf::io::ArrayOutputStream os(out_.data(), static_cast<int>(out_.size()));
            benchmark::DoNotOptimize(pb_.SerializeToZeroCopyStream(&os));
            benchmark::ClobberMemory();
        }
    }
    void gather_pbc(benchmark::State &st)
    {
        for (auto _ : st) {
            pbc_flat_buffer b;
            b.at = out_.data();
            benchmark::DoNotOptimize(c_.pbc_pack_to_buffer(pbc_, &b.base));
            benchmark::ClobberMemory();
        }
    }

    std::string name_;
    std::string wire_;
    contenders<Rec, Pb, Pbc, Npb> c_;
    bool npb_packs_;
    Rec rec_{};
    Pb pb_;
    Pbc *pbc_ = nullptr;
    Npb npb_{};
    npb_blob blob_;
    std::string encodings_[4];
    std::vector<uint8_t> out_;
};

template <class Rec, class Pb, class Pbc, class Npb>
bool add(const char *name, std::string wire, contenders<Rec, Pb, Pbc, Npb> c, unsigned ops, bool npb_packs = false)
{
    // Benchmarks refer to their workload until the program ends.
    static std::vector<std::unique_ptr<void, void (*)(void *)>> keep;
    auto *w = new workload<Rec, Pb, Pbc, Npb>(name, std::move(wire), c, npb_packs);
    keep.emplace_back(w, [](void *p) { delete static_cast<workload<Rec, Pb, Pbc, Npb> *>(p); });
    if (!w->prepare()) {
        return false;
    }
    w->register_all(ops);
    return true;
}

// The functions of one message in every contender, by the names each gives it.
#define PEERS(ours, pb, Pbc)                                                                            \
    contenders<struct mivo_##ours, obfl::pb, Obfl__##Pbc, obfl_##pb>                       \
    {                                                                                                    \
        mivo_##ours##_encode_ext, mivo_##ours##_decode_ext, mivo_##ours##_duplicate, mivo_##ours##_free_ext, \
            obfl__##pb##__get_packed_size, obfl__##pb##__pack, obfl__##pb##__pack_to_buffer, \
            obfl__##pb##__unpack, obfl__##pb##__free_unpacked, obfl_##pb##_fields          \
    }

// ---- W9: a line card's traffic ----------------------------------------------
//
// A fixed, seeded sequence of records of all 37 messages in the mix a line
// card sends and receives: mostly syslog lines, sensor readings, bulk
// readings and their replies, now and then a registration, a threshold, an
// inventory record, a diagnostic result or a request's reply with data.
// Each contender measures and writes, or decodes and releases, one record
// per iteration in sequence order, so the times are per record of the mix.

// name, relative weight in the mix
#define W9_MESSAGES(X)                                                                                          \
    X(svc_regn, 4) X(svc_regn_done, 4) X(svc_unregn, 2) X(svc_unregn_done, 2) X(write_env_pep_record, 6)        \
    X(write_env_pep_record_done, 6) X(write_env_raw_record, 3) X(write_env_raw_record_done, 3)                 \
    X(write_env_volt_thresholds, 3) X(write_env_volt_thresholds_done, 3) X(write_env_current_thresholds, 3)    \
    X(write_env_current_thresholds_done, 3) X(write_env_temp_thresholds, 3) X(write_env_temp_thresholds_done, 3) \
    X(log_env_sensor_info, 220) X(log_env_sensor_info_done, 200) X(log_bulk_env_sensor_info, 60)               \
    X(log_bulk_env_sensor_info_done, 60) X(write_syslog_thresholds, 3) X(write_syslog_thresholds_done, 3)      \
    X(log_syslog, 250) X(log_syslog_done, 230) X(log_str_thresholds, 3) X(log_str_thresholds_done, 3)          \
    X(log_str, 20) X(log_str_done, 20) X(log_uptime, 10) X(log_uptime_done, 10) X(log_diag_record, 15)         \
    X(log_diag_record_done, 15) X(log_diag_str_record, 8) X(log_diag_str_record_done, 8) X(mgbl_hello, 2)       \
    X(mgbl_hello_done, 2) X(mgbl_notify_locations, 2) X(mgbl_request, 8) X(mgbl_request_done, 8)

constexpr size_t w9_records = 12000;

// One message as every contender handles it, behind plain function pointers
// so that all of them pay the same indirect call.
struct w9_kind {
    const char *name;
    unsigned weight;
    const google::protobuf::Message *prototype;
    size_t ours_size;
    int (*ours_decode)(void *, const uint8_t *, size_t, mivo_alloc_t *, void *);
    size_t (*ours_encode)(const void *, uint8_t *, size_t);
    void (*ours_release)(void *, mivo_free_t *, void *);
    bool (*pb_parse)(const uint8_t *, size_t);
    size_t (*pb_write)(const google::protobuf::Message &, uint8_t *);
    const ProtobufCMessageDescriptor *pbc;
    const pb_msgdesc_t *npb;
    size_t npb_size;
    void (*npb_decoding)(void *, npb_blob *); // callback members set for decoding
    void (*npb_encoding)(void *);             // and, afterwards, for encoding
};

#define W9_KIND(n, w)                                                                                         \
    w9_kind{#n, w, &obfl::n::default_instance(), sizeof(struct mivo_##n),                                      \
            [](void *r, const uint8_t *p, size_t k, mivo_alloc_t *a, void *t) {                                \
                return mivo_##n##_decode_ext(static_cast<struct mivo_##n *>(r), p, k, a, t, MIVO_FLAGS_NONE);  \
            },                                                                                                 \
            [](const void *r, uint8_t *d, size_t k) {                                                          \
                return mivo_##n##_encode_ext(static_cast<const struct mivo_##n *>(r), d, k, nullptr, nullptr,  \
                                             MIVO_FLAGS_NONE);                                                 \
            },                                                                                                 \
            [](void *r, mivo_free_t *f, void *t) {                                                             \
                mivo_##n##_free_ext(static_cast<struct mivo_##n *>(r), f, t, MIVO_FLAGS_NONE);                 \
            },                                                                                                 \
            [](const uint8_t *p, size_t k) {                                                                   \
                obfl::n m;                                                                                     \
                return m.ParseFromArray(p, static_cast<int>(k));                                               \
            },                                                                                                 \
            [](const google::protobuf::Message &m, uint8_t *d) {                                               \
                const auto &typed = static_cast<const obfl::n &>(m);                                           \
                benchmark::DoNotOptimize(typed.ByteSizeLong());                                                \
                return static_cast<size_t>(typed.SerializeWithCachedSizesToArray(d) - d);                      \
            },                                                                                                 \
            &obfl__##n##__descriptor, obfl_##n##_fields, sizeof(obfl_##n),                                     \
            [](void *m, npb_blob *b) { npb_for_decode(*static_cast<obfl_##n *>(m), b); },                       \
            [](void *m) { npb_for_encode(*static_cast<obfl_##n *>(m)); }},

const w9_kind w9_kinds[] = {W9_MESSAGES(W9_KIND)};

// Plausible values: mostly small numbers and enumeration values, times near
// now, names of a few dozen characters, syslog lines up to 120.
class w9_filler {
public:
    explicit w9_filler(uint32_t seed) : rng_(seed) {}

    void fill(google::protobuf::Message &m)
    {
        const auto *d = m.GetDescriptor();
        const auto *rf = m.GetReflection();
        if (d->name() == "tesk_entity_subtype_un") { // one sub-type, that of the entity's type
            rf->SetUInt32(&m, d->field(static_cast<int>(below(12))), below(100));
            return;
        }
        if (d->name() == "tesk_entity_tsi_st") {
            rf->SetUInt32(&m, d->field(0), 1 + below(12));
            fill(*rf->MutableMessage(&m, d->field(1)));
            rf->SetUInt32(&m, d->field(2), below(64));
            return;
        }
        if (d->name() == "tesk_eid_st") { // version, rack, slot, instance, chain length, chain
            const unsigned chain = 1 + below(2);
            const unsigned values[] = {1, below(4), below(32), below(8), chain};
            for (int i = 0; i < 5; ++i) {
                rf->SetUInt32(&m, d->field(i), values[i]);
            }
            for (unsigned i = 0; i < chain; ++i) {
                fill(*rf->AddMessage(&m, d->field(5)));
            }
            return;
        }
        const unsigned run = 4 + below(29); // the lists of one bulk reading share their length
        for (int i = 0; i < d->field_count(); ++i) {
            const auto *f = d->field(i);
            // nanopb's byte-string callback (request_done's _data) always
            // writes its member, so that one is always present.
            if (!f->is_repeated() && f->type() != google::protobuf::FieldDescriptor::TYPE_BYTES && below(100) < 12) {
                continue;
            }
            const std::string &name = f->name();
            unsigned count = 1;
            if (f->is_repeated()) {
                count = name == "tsi"             ? 1 + below(2)
                        : name == "env_raw"       ? 1 + below(4)
                        : name == "location_name" ? 1 + below(16)
                        : name == "sensor_name"   ? 1 + below(32)
                                                  : run;
            }
            for (unsigned k = 0; k < count; ++k) {
                put(m, rf, f, name);
            }
        }
    }

private:
    unsigned below(unsigned n) { return static_cast<unsigned>(rng_() % n); }
    uint32_t small() { return below(100) < 75 ? below(128) : below(100) < 80 ? below(16384) : static_cast<uint32_t>(rng_()); }
    std::string text(size_t n)
    {
        static const char stem[] = "%PLATFORM-ENVMON-2-TEMP_HIGH: inlet 0/RP0/CPU0 reads 71 C, above 70 C; fan tray 1 ";
        std::string t;
        const size_t at = below(sizeof stem - 1);
        while (t.size() < n) {
            t += stem[(at + t.size()) % (sizeof stem - 1)];
        }
        return t;
    }

    void put(google::protobuf::Message &m, const google::protobuf::Reflection *rf,
             const google::protobuf::FieldDescriptor *f, const std::string &name)
    {
        using FD = google::protobuf::FieldDescriptor;
        const bool rep = f->is_repeated();
        switch (f->cpp_type()) {
        case FD::CPPTYPE_UINT32: {
            const bool time = name == "timestamp" || (name.size() > 3 && name.compare(name.size() - 3, 3, "_ts") == 0);
            const uint32_t v = time
                                   ? 1700000000u + below(10000000)
                                   : small();
            rep ? rf->AddUInt32(&m, f, v) : rf->SetUInt32(&m, f, v);
            break;
        }
        case FD::CPPTYPE_INT32: {
            const int32_t v = name == "scale" ? static_cast<int32_t>(below(7)) - 3
                                              : static_cast<int32_t>(below(200000)) - 50000;
            rep ? rf->AddInt32(&m, f, v) : rf->SetInt32(&m, f, v);
            break;
        }
        case FD::CPPTYPE_UINT64: {
            const uint64_t v = below(100) < 90 ? 0 : uint64_t{rng_()} << 20 | rng_();
            rep ? rf->AddUInt64(&m, f, v) : rf->SetUInt64(&m, f, v);
            break;
        }
        case FD::CPPTYPE_BOOL:
            rep ? rf->AddBool(&m, f, below(2)) : rf->SetBool(&m, f, below(2));
            break;
        case FD::CPPTYPE_STRING: {
            std::string v;
            if (f->type() == FD::TYPE_BYTES) {
                v.resize(64 + below(961));
                for (char &c : v) {
                    c = static_cast<char>(rng_());
                }
            } else {
                v = text(name == "data" ? 40 + below(81) : 4 + below(28));
            }
            rep ? rf->AddString(&m, f, v) : rf->SetString(&m, f, v);
            break;
        }
        case FD::CPPTYPE_MESSAGE:
            fill(rep ? *rf->AddMessage(&m, f) : *rf->MutableMessage(&m, f));
            break;
        default:
            break;
        }
    }

    std::mt19937 rng_;
};

class line_card {
public:
    bool prepare()
    {
        std::mt19937 pick(20261124);
        unsigned total = 0;
        for (const auto &k : w9_kinds) {
            total += k.weight;
        }
        w9_filler filler(7);
        recs_.resize(w9_records);
        for (size_t i = 0; i < w9_records; ++i) {
            // Every message once first, then the mix.
            unsigned kind = static_cast<unsigned>(i);
            if (i >= std::size(w9_kinds)) {
                unsigned at = static_cast<unsigned>(pick() % total);
                for (kind = 0; at >= w9_kinds[kind].weight; ++kind) {
                    at -= w9_kinds[kind].weight;
                }
            }
            if (!prepare_one(recs_[i], kind, filler)) {
                return fail(std::string("W9 record ") + std::to_string(i) + " (" + w9_kinds[kind].name + ")");
            }
            largest_ = std::max(largest_, recs_[i].wire.size());
        }
        out_.assign(2 * largest_ + 1024, 0);
        return true;
    }

    void register_all()
    {
        reg("measure_write/ours", &line_card::encode_ours);
        reg("encode/libprotobuf", &line_card::encode_pb);
        reg("encode/protobuf-c", &line_card::encode_pbc);
        reg("encode/nanopb", &line_card::encode_npb);
        reg("decode/ours", &line_card::decode_ours);
        reg("decode/libprotobuf", &line_card::decode_pb);
        reg("decode/protobuf-c", &line_card::decode_pbc);
        reg("decode/nanopb", &line_card::decode_npb);
    }

    ~line_card()
    {
        for (auto &r : recs_) {
            if (r.ours) {
                w9_kinds[r.kind].ours_release(r.ours.get(), heap_free, nullptr);
            }
            if (r.pbc != nullptr) {
                protobuf_c_message_free_unpacked(r.pbc, nullptr);
            }
        }
    }

private:
    struct record {
        unsigned kind = 0;
        std::string wire;
        std::unique_ptr<unsigned char[]> ours;
        std::unique_ptr<google::protobuf::Message> pb;
        ProtobufCMessage *pbc = nullptr;
        std::unique_ptr<unsigned char[]> npb;
        std::unique_ptr<npb_blob> blob;
    };
    using method = void (line_card::*)(benchmark::State &);

    void reg(const char *what, method m)
    {
        benchmark::RegisterBenchmark((std::string("W9_line_card/") + what).c_str(),
                                     [this, m](benchmark::State &st) { (this->*m)(st); });
    }

    // Every contender decodes the record, and each one's encoding reads back
    // in libprotobuf as the same message.
    bool prepare_one(record &r, unsigned kind, w9_filler &filler)
    {
        const w9_kind &k = w9_kinds[kind];
        r.kind = kind;
        r.pb.reset(k.prototype->New());
        filler.fill(*r.pb);
        r.wire = r.pb->SerializeAsString();
        r.ours = std::make_unique<unsigned char[]>(k.ours_size);
        r.npb = std::make_unique<unsigned char[]>(k.npb_size);
        if (std::strcmp(k.name, "mgbl_request_done") == 0) {
            r.blob = std::make_unique<npb_blob>(); // the one callback member's storage
        }
        k.npb_decoding(r.npb.get(), r.blob.get());
        pb_istream_t is = pb_istream_from_buffer(u8(r.wire), r.wire.size());
        if (k.ours_decode(r.ours.get(), u8(r.wire), r.wire.size(), heap_alloc, nullptr) != MIVO_NO_ERROR ||
            (r.pbc = protobuf_c_message_unpack(k.pbc, nullptr, r.wire.size(), u8(r.wire))) == nullptr ||
            !pb_decode(&is, k.npb, r.npb.get())) {
            return false;
        }
        k.npb_encoding(r.npb.get());
        std::string ours(k.ours_encode(r.ours.get(), nullptr, 0), '\0');
        k.ours_encode(r.ours.get(), reinterpret_cast<uint8_t *>(ours.data()), ours.size());
        std::string pbc(protobuf_c_message_get_packed_size(r.pbc), '\0');
        protobuf_c_message_pack(r.pbc, reinterpret_cast<uint8_t *>(pbc.data()));
        size_t n = 0;
        pb_get_encoded_size(&n, k.npb, r.npb.get());
        std::string npb(n, '\0');
        pb_ostream_t os = pb_ostream_from_buffer(reinterpret_cast<uint8_t *>(npb.data()), n);
        if (!pb_encode(&os, k.npb, r.npb.get())) {
            return false;
        }
        for (const std::string *bytes : {&ours, &pbc, &npb}) {
            std::unique_ptr<google::protobuf::Message> back(k.prototype->New());
            if (!back->ParseFromString(*bytes) || !google::protobuf::util::MessageDifferencer::Equals(*back, *r.pb)) {
                return false;
            }
        }
        return true;
    }

    const record &next()
    {
        const record &r = recs_[at_];
        if (++at_ == recs_.size()) {
            at_ = 0;
        }
        return r;
    }

    void encode_ours(benchmark::State &st)
    {
        for (auto _ : st) {
            const record &r = next();
            const auto &k = w9_kinds[r.kind];
            const size_t n = k.ours_encode(r.ours.get(), nullptr, 0);
            benchmark::DoNotOptimize(k.ours_encode(r.ours.get(), out_.data(), n));
            benchmark::ClobberMemory();
        }
    }
    void encode_pb(benchmark::State &st)
    {
        for (auto _ : st) {
            const record &r = next();
            benchmark::DoNotOptimize(w9_kinds[r.kind].pb_write(*r.pb, out_.data()));
            benchmark::ClobberMemory();
        }
    }
    void encode_pbc(benchmark::State &st)
    {
        for (auto _ : st) {
            const record &r = next();
            benchmark::DoNotOptimize(protobuf_c_message_get_packed_size(r.pbc));
            benchmark::DoNotOptimize(protobuf_c_message_pack(r.pbc, out_.data()));
            benchmark::ClobberMemory();
        }
    }
    void encode_npb(benchmark::State &st)
    {
        for (auto _ : st) {
            const record &r = next();
            const auto &k = w9_kinds[r.kind];
            size_t n = 0;
            pb_get_encoded_size(&n, k.npb, r.npb.get());
            pb_ostream_t os = pb_ostream_from_buffer(out_.data(), n);
            benchmark::DoNotOptimize(pb_encode(&os, k.npb, r.npb.get()));
            benchmark::ClobberMemory();
        }
    }
    void decode_ours(benchmark::State &st)
    {
        size_t largest = 0;
        for (const auto &k : w9_kinds) {
            largest = std::max(largest, k.ours_size);
        }
        std::vector<unsigned char> scratch(largest);
        for (auto _ : st) {
            const record &r = next();
            const auto &k = w9_kinds[r.kind];
            benchmark::DoNotOptimize(k.ours_decode(scratch.data(), u8(r.wire), r.wire.size(), heap_alloc, nullptr));
            k.ours_release(scratch.data(), heap_free, nullptr);
        }
    }
    void decode_pb(benchmark::State &st)
    {
        for (auto _ : st) {
            const record &r = next();
            benchmark::DoNotOptimize(w9_kinds[r.kind].pb_parse(u8(r.wire), r.wire.size()));
        }
    }
    void decode_pbc(benchmark::State &st)
    {
        for (auto _ : st) {
            const record &r = next();
            ProtobufCMessage *m = protobuf_c_message_unpack(w9_kinds[r.kind].pbc, nullptr, r.wire.size(), u8(r.wire));
            benchmark::DoNotOptimize(m);
            protobuf_c_message_free_unpacked(m, nullptr);
        }
    }
    // nanopb decodes into a static record of the message's type, kept per
    // message: nothing to allocate or release.
    void decode_npb(benchmark::State &st)
    {
        std::vector<std::unique_ptr<unsigned char[]>> scratch;
        std::vector<std::unique_ptr<npb_blob>> blobs;
        for (const auto &k : w9_kinds) {
            scratch.push_back(std::make_unique<unsigned char[]>(k.npb_size));
            blobs.push_back(std::make_unique<npb_blob>());
            k.npb_decoding(scratch.back().get(), blobs.back().get());
        }
        for (auto _ : st) {
            const record &r = next();
            pb_istream_t is = pb_istream_from_buffer(u8(r.wire), r.wire.size());
            benchmark::DoNotOptimize(pb_decode(&is, w9_kinds[r.kind].npb, scratch[r.kind].get()));
            benchmark::ClobberMemory();
        }
    }

    std::vector<record> recs_;
    size_t largest_ = 0;
    size_t at_ = 0;
    std::vector<uint8_t> out_;
};

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    const bool ok =
        add("W1_log_syslog", w1(), PEERS(log_syslog, log_syslog, LogSyslog), everyday) &&
        add("W2_bulk_sensor_info", w2(), PEERS(log_bulk_env_sensor_info, log_bulk_env_sensor_info, LogBulkEnvSensorInfo),
            everyday, true) &&
        add("W3_request_done_64KiB", w3(65536), PEERS(mgbl_request_done, mgbl_request_done, MgblRequestDone),
            everyday | gathered) &&
        add("W3_request_done_1KiB", w3(1024), PEERS(mgbl_request_done, mgbl_request_done, MgblRequestDone), gathered) &&
        add("W3_request_done_64B", w3(64), PEERS(mgbl_request_done, mgbl_request_done, MgblRequestDone), gathered) &&
        add("W4_raw_record", w4(), PEERS(write_env_raw_record, write_env_raw_record, WriteEnvRawRecord),
            everyday | gathered) &&
        add("W5_temp_thresholds", w5(),
            PEERS(write_env_temp_thresholds, write_env_temp_thresholds, WriteEnvTempThresholds), everyday, true) &&
        add("W6_hello_done", w6(), PEERS(mgbl_hello_done, mgbl_hello_done, MgblHelloDone), everyday) &&
        add("W7_diag_record", w7(), PEERS(log_diag_record, log_diag_record, LogDiagRecord), everyday) &&
        add("W8_notify_locations", w8(), PEERS(mgbl_notify_locations, mgbl_notify_locations, MgblNotifyLocations),
            everyday);
    static line_card w9;
    if (!ok || !w9.prepare()) {
        return 1;
    }
    w9.register_all();
    std::fprintf(stderr, "cross-check passed: every contender's bytes decode alike in every other\n");
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    google::protobuf::ShutdownProtobufLibrary();
    return 0;
}
