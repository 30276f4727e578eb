// W9 in every contender: each message of the mix behind plain function
// pointers, the cross-check of every record, and the timed loops.
#include "line_card_bench.hpp"

#include <benchmark/benchmark.h>

#include <google/protobuf/util/message_differencer.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "allocators.hpp"
#include "catalogue_table.hpp"
#include "line_card_mix.hpp"
#include "peers.hpp"
#include "workloads.hpp"

namespace bench {
namespace {

// One message as each peer handles it, behind plain function pointers so
// that all of them pay the same indirect call as ours, which go through the
// catalogue table.
struct w9_kind {
    bool (*pb_parse)(const uint8_t *, size_t);
    size_t (*pb_write)(const google::protobuf::Message &, uint8_t *);
    const ProtobufCMessageDescriptor *pbc;
    const pb_msgdesc_t *npb;
    size_t npb_size;
    void (*npb_decoding)(void *, npb_blob *); // callback members set for decoding
    void (*npb_encoding)(void *);             // and, afterwards, for encoding
};

#define W9_KIND(n, weight)                                                                                    \
    w9_kind{[](const uint8_t *p, size_t k) {                                                                   \
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

// In the order of BENCH_W9_MESSAGES, so that a record's kind indexes both.
const w9_kind w9_kinds[] = {BENCH_W9_MESSAGES(W9_KIND)};
#undef W9_KIND

class line_card {
public:
    bool prepare()
    {
        for (const mix_message &m : mix_messages()) {
            ours_.push_back(mivo_catalogue::find(m.name));
            if (ours_.back() == nullptr) {
                return fail(std::string("W9 message ") + m.name + ": not in the catalogue");
            }
        }
        std::vector<mix_record> mix = line_card_mix();
        size_t largest = 0;
        recs_.resize(mix.size());
        for (size_t i = 0; i < mix.size(); ++i) {
            record &r = recs_[i];
            r.kind = mix[i].kind;
            r.pb = std::move(mix[i].pb);
            r.wire = std::move(mix[i].wire);
            if (!prepare_one(r)) {
                return fail(std::string("W9 record ") + std::to_string(i) + " (" + mix_messages()[r.kind].name + ")");
            }
            largest = std::max(largest, r.wire.size());
        }
        out_.assign(2 * largest + 1024, 0);
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
                ours_[r.kind]->release(r.ours.get(), heap_free, nullptr, MIVO_FLAGS_NONE);
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
    bool prepare_one(record &r)
    {
        const w9_kind &k = w9_kinds[r.kind];
        const mivo_catalogue::entry &ours_entry = *ours_[r.kind];
        r.ours = std::make_unique<unsigned char[]>(ours_entry.record_size);
        r.npb = std::make_unique<unsigned char[]>(k.npb_size);
        if (std::strcmp(mix_messages()[r.kind].name, "mgbl_request_done") == 0) {
            r.blob = std::make_unique<npb_blob>(); // the one callback member's storage
        }
        k.npb_decoding(r.npb.get(), r.blob.get());
        pb_istream_t is = pb_istream_from_buffer(u8(r.wire), r.wire.size());
        if (ours_entry.decode(r.ours.get(), u8(r.wire), r.wire.size(), heap_alloc, nullptr, MIVO_FLAGS_NONE) !=
                MIVO_NO_ERROR ||
            (r.pbc = protobuf_c_message_unpack(k.pbc, nullptr, r.wire.size(), u8(r.wire))) == nullptr ||
            !pb_decode(&is, k.npb, r.npb.get())) {
            return false;
        }
        k.npb_encoding(r.npb.get());
        std::string ours(ours_entry.encode(r.ours.get(), nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE), '\0');
        ours_entry.encode(r.ours.get(), reinterpret_cast<uint8_t *>(ours.data()), ours.size(), nullptr, nullptr,
                          MIVO_FLAGS_NONE);
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
            std::unique_ptr<google::protobuf::Message> back(r.pb->New());
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
            const auto &k = *ours_[r.kind];
            const size_t n = k.encode(r.ours.get(), nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
            benchmark::DoNotOptimize(k.encode(r.ours.get(), out_.data(), n, nullptr, nullptr, MIVO_FLAGS_NONE));
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
        mivo_catalogue::record_storage scratch;
        for (auto _ : st) {
            const record &r = next();
            const auto &k = *ours_[r.kind];
            benchmark::DoNotOptimize(
                k.decode(&scratch, u8(r.wire), r.wire.size(), heap_alloc, nullptr, MIVO_FLAGS_NONE));
            k.release(&scratch, heap_free, nullptr, MIVO_FLAGS_NONE);
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

    std::vector<const mivo_catalogue::entry *> ours_; // by kind
    std::vector<record> recs_;
    size_t at_ = 0;
    std::vector<uint8_t> out_;
};

} // namespace

bool add_line_card()
{
    static line_card w9;
    if (!w9.prepare()) {
        return false;
    }
    w9.register_all();
    return true;
}

} // namespace bench
