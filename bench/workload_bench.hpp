// One workload of W1 to W8 as every contender sees it: the cross-check run
// before timing, and the timed loop of each operation in each contender,
// registered as <workload>/<operation>/<contender>.
#pragma once

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "allocators.hpp"
#include "peers.hpp"
#include "workloads.hpp"

namespace bench {

template <class Rec, class Pb, class Pbc, class Npb>
class workload_bench {
public:
    workload_bench(std::string name, std::string wire, contenders<Rec, Pb, Pbc, Npb> c, bool npb_packs)
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
            reg("encode/ours", &workload_bench::encode_ours);
            reg("encode/libprotobuf", &workload_bench::encode_pb);
            reg("encode/protobuf-c", &workload_bench::encode_pbc);
            reg("encode/nanopb", &workload_bench::encode_npb);
            reg("encode/memcpy", &workload_bench::encode_memcpy);
            reg("measure_write/ours", &workload_bench::measure_write_ours);
            reg("decode/ours", &workload_bench::decode_ours);
            reg("decode/libprotobuf", &workload_bench::decode_pb);
            reg("decode/protobuf-c", &workload_bench::decode_pbc);
            reg("decode/nanopb", &workload_bench::decode_npb);
            reg("decode_arena/ours", &workload_bench::decode_ours_arena);
            reg("decode_arena/libprotobuf", &workload_bench::decode_pb_arena);
            reg("duplicate/ours", &workload_bench::duplicate_ours);
            reg("duplicate/libprotobuf", &workload_bench::duplicate_pb);
            reg("duplicate_arena/ours", &workload_bench::duplicate_ours_arena);
            reg("duplicate_arena/libprotobuf", &workload_bench::duplicate_pb_arena);
        }
        if (ops & gathered) {
            reg("gather/ours", &workload_bench::gather_ours);
            reg("gather/libprotobuf", &workload_bench::gather_pb);
            reg("gather/protobuf-c", &workload_bench::gather_pbc);
            reg("decode_shared/ours", &workload_bench::decode_ours_shared);
            if (!(ops & everyday)) { // the peers' decode, for comparison
                reg("decode/libprotobuf", &workload_bench::decode_pb);
                reg("decode/protobuf-c", &workload_bench::decode_pbc);
            }
        }
    }

    ~workload_bench()
    {
        c_.release(&rec_, heap_free, nullptr, MIVO_FLAGS_NONE);
        if (pbc_ != nullptr) {
            c_.pbc_free(pbc_, nullptr);
        }
    }

private:
    using method = void (workload_bench::*)(benchmark::State &);

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

// Prepares a workload and registers its benchmarks; false if the
// cross-check fails. npb_packs: nanopb packs the message's repeated numbers,
// which this library refuses by design, so that one pairing is left out.
template <class Rec, class Pb, class Pbc, class Npb>
bool add(const workload &w, contenders<Rec, Pb, Pbc, Npb> c, bool npb_packs)
{
    // Benchmarks refer to their workload until the program ends.
    static std::vector<std::unique_ptr<workload_bench<Rec, Pb, Pbc, Npb>>> keep;
    keep.push_back(std::make_unique<workload_bench<Rec, Pb, Pbc, Npb>>(w.name, w.wire, c, npb_packs));
    if (!keep.back()->prepare()) {
        return false;
    }
    keep.back()->register_all(w.ops);
    return true;
}

} // namespace bench
