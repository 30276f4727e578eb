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

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
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
    if (!ok) {
        return 1;
    }
    std::fprintf(stderr, "cross-check passed: every contender's bytes decode alike in every other\n");
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    google::protobuf::ShutdownProtobufLibrary();
    return 0;
}
