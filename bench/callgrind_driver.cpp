// Loops of our library's operations for callgrind to count, one loop per
// workload and operation. scripts/instructions.sh runs it under callgrind
// with N and 2N and divides the difference by the difference in calls, so
// that setup, first calls and symbol binding cancel out and what remains is
// one call with its share of the calling loop.
//
//   callgrind_driver N          (N >= 1000)
//
// Each loop runs between client requests that switch instrumentation on,
// zero the counts and dump them under the loop's name,
// <workload>/<operation>; the program prints that name and the number of
// calls made. Outside callgrind the requests do nothing and the program
// still checks every result.
//
// Operations, on the records of W1 to W8 (W3 with 64 KiB) and of W9:
// encode into a buffer larger than needed; measure (size 0), then write into
// a buffer of exactly that length; decode libprotobuf's encoding with malloc,
// then release; duplicate with malloc, then release. W1 to W8 make N calls
// each. W9 makes one call per record of the mix, in sequence order, and runs
// the whole mix N/1000 times, so that two runs differ by whole passes and
// the figure is per record of the mix. Then the identifier alone, through
// its own library's encoder: measure it, write it into a buffer of exactly
// its length, write it into a larger one.
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "allocators.hpp"
#include "catalogue_table.hpp"
#include "line_card_mix.hpp"
#include "mivo_tesk_eid_def.h"
#include "workloads.hpp"

namespace {

using mivo_catalogue::entry;
using mivo_catalogue::record_storage;

// One of our records, decoded from libprotobuf's encoding, with the length
// of our encoding of it.
struct subject {
    const entry *codec = nullptr;
    const std::string *wire = nullptr;
    record_storage record;
    size_t length = 0;

    bool prepare(std::string_view message, const std::string &bytes)
    {
        codec = mivo_catalogue::find(message);
        wire = &bytes;
        if (codec == nullptr || codec->decode(&record, bench::u8(bytes), bytes.size(), bench::heap_alloc, nullptr,
                                              MIVO_FLAGS_NONE) != MIVO_NO_ERROR) {
            std::fprintf(stderr, "callgrind_driver: %.*s: our decoder refuses libprotobuf's bytes\n",
                         static_cast<int>(message.size()), message.data());
            return false;
        }
        length = codec->encode(&record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
        return true;
    }
    void release()
    {
        if (codec != nullptr) {
            codec->release(&record, bench::heap_free, nullptr, MIVO_FLAGS_NONE);
        }
    }
};

// The four operations, each true when the library answered as it should.
struct operations {
    std::vector<uint8_t> out;
    record_storage scratch;

    bool encode(const subject &s)
    {
        return s.codec->encode(&s.record, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE) == s.length;
    }
    bool measure_write(const subject &s)
    {
        const size_t n = s.codec->encode(&s.record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
        return s.codec->encode(&s.record, out.data(), n, nullptr, nullptr, MIVO_FLAGS_NONE) == n && n == s.length;
    }
    bool decode(const subject &s)
    {
        const int rc = s.codec->decode(&scratch, bench::u8(*s.wire), s.wire->size(), bench::heap_alloc, nullptr,
                                       MIVO_FLAGS_NONE);
        s.codec->release(&scratch, bench::heap_free, nullptr, MIVO_FLAGS_NONE);
        return rc == MIVO_NO_ERROR;
    }
    bool duplicate(const subject &s)
    {
        const int rc = s.codec->duplicate(&scratch, &s.record, bench::heap_alloc, nullptr);
        s.codec->release(&scratch, bench::heap_free, nullptr, MIVO_FLAGS_NONE);
        return rc == MIVO_NO_ERROR;
    }
};

bool failed = false;

// One counted loop: call(i) for i in [0, calls).
template <class Call>
void count(const std::string &label, size_t calls, Call call)
{
    size_t wrong = 0;
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    for (size_t i = 0; i < calls; ++i) {
        wrong += call(i) ? 0 : 1;
    }
    CALLGRIND_DUMP_STATS_AT(label.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
    if (wrong != 0) {
        std::fprintf(stderr, "callgrind_driver: %s: %zu of %zu calls answered wrongly\n", label.c_str(), wrong, calls);
        failed = true;
    }
    std::printf("%s %zu\n", label.c_str(), calls);
}

// The four operations, each call on the subject pick(i) gives.
template <class Pick>
void count_operations(const std::string &workload, size_t calls, Pick pick, operations &ops)
{
    count(workload + "/encode", calls, [&](size_t i) { return ops.encode(pick(i)); });
    count(workload + "/measure_write", calls, [&](size_t i) { return ops.measure_write(pick(i)); });
    count(workload + "/decode", calls, [&](size_t i) { return ops.decode(pick(i)); });
    count(workload + "/duplicate", calls, [&](size_t i) { return ops.duplicate(pick(i)); });
}

} // namespace

int main(int argc, char **argv)
{
    char *end = nullptr;
    const unsigned long long n = argc == 2 ? std::strtoull(argv[1], &end, 10) : 0;
    if (argc != 2 || *end != '\0' || n < 1000) {
        std::fprintf(stderr, "usage: callgrind_driver N   (calls per loop, at least 1000)\n");
        return 2;
    }

    const std::vector<bench::workload> workloads = bench::workloads();
    const std::vector<bench::mix_record> mix = bench::line_card_mix();
    const std::string identifier_wire = bench::identifier();
    size_t largest = identifier_wire.size();
    for (const auto &w : workloads) {
        largest = std::max(largest, w.wire.size());
    }
    for (const auto &r : mix) {
        largest = std::max(largest, r.wire.size());
    }
    operations ops;
    ops.out.assign(2 * largest + 1024, 0);

    bool ok = true;
    for (const auto &w : workloads) {
        if (!(w.ops & bench::everyday)) {
            continue;
        }
        subject one;
        ok = one.prepare(w.message, w.wire);
        if (ok) {
            count_operations(w.name, n, [&](size_t) -> const subject & { return one; }, ops);
        }
        one.release();
        if (!ok) {
            return 1;
        }
    }

    std::vector<subject> records(mix.size());
    for (size_t i = 0; i < mix.size() && ok; ++i) {
        ok = records[i].prepare(bench::mix_messages()[mix[i].kind].name, mix[i].wire);
    }
    if (ok) {
        count_operations("W9_line_card", n / 1000 * records.size(),
                         [&](size_t i) -> const subject & { return records[i % records.size()]; }, ops);
    }
    for (subject &s : records) {
        s.release();
    }
    if (!ok) {
        return 1;
    }

    // The identifier, through its own library.
    subject id;
    if (!id.prepare("tesk_eid_st", identifier_wire)) {
        return 1;
    }
    const auto *eid = reinterpret_cast<const mivo_tesk_eid_st *>(&id.record);
    const size_t len = id.length;
    count("identifier/measure", n, [&](size_t) {
        return mivo_tesk_eid_st_encode_ext(eid, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE) == len;
    });
    count("identifier/write_exact", n, [&](size_t) {
        return mivo_tesk_eid_st_encode_ext(eid, ops.out.data(), len, nullptr, nullptr, MIVO_FLAGS_NONE) == len;
    });
    count("identifier/write_larger", n, [&](size_t) {
        return mivo_tesk_eid_st_encode_ext(eid, ops.out.data(), ops.out.size(), nullptr, nullptr, MIVO_FLAGS_NONE) ==
               len;
    });
    id.release();
    return failed ? 1 : 0;
}
