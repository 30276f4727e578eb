// The line card's mix: which message comes next, and plausible values for it.
#include "line_card_mix.hpp"

#include <random>

#include "obfl_catalogue.pb.h"

namespace bench {
namespace {

#define BENCH_MIX_MESSAGE(n, w) mix_message{#n, w, &obfl::n::default_instance()},
const mix_message messages[] = {BENCH_W9_MESSAGES(BENCH_MIX_MESSAGE)};
#undef BENCH_MIX_MESSAGE

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

} // namespace

std::span<const mix_message> mix_messages() { return messages; }

std::vector<mix_record> line_card_mix()
{
    std::mt19937 pick(20261124);
    unsigned total = 0;
    for (const auto &k : messages) {
        total += k.weight;
    }
    w9_filler filler(7);
    std::vector<mix_record> recs(line_card_records);
    for (size_t i = 0; i < recs.size(); ++i) {
        unsigned kind = static_cast<unsigned>(i);
        if (i >= std::size(messages)) {
            unsigned at = static_cast<unsigned>(pick() % total);
            for (kind = 0; at >= messages[kind].weight; ++kind) {
                at -= messages[kind].weight;
            }
        }
        mix_record &r = recs[i];
        r.kind = kind;
        r.pb.reset(messages[kind].prototype->New());
        filler.fill(*r.pb);
        r.wire = r.pb->SerializeAsString();
    }
    return recs;
}

} // namespace bench
