// Adapters that let every contender code the same message: the functions of
// one message in each (our library, libprotobuf, protobuf-c, nanopb),
// libprotobuf's Arena in its fastest regime, protobuf-c's output buffer over
// preallocated memory, and nanopb's one callback member.
#pragma once

#include <pb_decode.h>
#include <pb_encode.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "allocators.hpp"
#include "mivo_obfl_mgr_def.h"
#include "obfl_catalogue.npb.h"
#include "obfl_catalogue.pb-c.h"
#include "obfl_catalogue.pb.h"

namespace bench {

inline bool fail(const std::string &what)
{
    std::fprintf(stderr, "cross-check failed: %s\n", what.c_str());
    return false;
}

// ---- libprotobuf ----------------------------------------------------------

// libprotobuf's Arena with a preallocated first block, its fastest regime,
// as large as our bump arena.
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

// ---- protobuf-c -----------------------------------------------------------

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

// ---- nanopb: the one callback member --------------------------------------

// request_done's _data: decoded into, and encoded from, a preallocated block.
struct npb_blob {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(1 << 17);
    size_t size = 0;
};

inline bool npb_blob_decode(pb_istream_t *stream, const pb_field_t *, void **arg)
{
    auto *b = static_cast<npb_blob *>(*arg);
    b->size = stream->bytes_left;
    return b->size <= b->bytes.size() && pb_read(stream, b->bytes.data(), b->size);
}

inline bool npb_blob_encode(pb_ostream_t *stream, const pb_field_t *field, void *const *arg)
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
inline void npb_for_decode(obfl_mgbl_request_done &m, npb_blob *blob)
{
    m.data.funcs.decode = npb_blob_decode;
    m.data.arg = blob;
}
inline void npb_for_encode(obfl_mgbl_request_done &m) { m.data.funcs.encode = npb_blob_encode; }

// ---- one message in every contender ---------------------------------------

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

// The functions of message m in every contender, by the names each gives it
// (Pbc: protobuf-c's CamelCase name of the message).
#define BENCH_PEERS(m, Pbc)                                                                              \
    bench::contenders<struct mivo_##m, obfl::m, Obfl__##Pbc, obfl_##m>                                   \
    {                                                                                                    \
        mivo_##m##_encode_ext, mivo_##m##_decode_ext, mivo_##m##_duplicate, mivo_##m##_free_ext,         \
            obfl__##m##__get_packed_size, obfl__##m##__pack, obfl__##m##__pack_to_buffer,                \
            obfl__##m##__unpack, obfl__##m##__free_unpacked, obfl_##m##_fields                           \
    }

} // namespace bench
