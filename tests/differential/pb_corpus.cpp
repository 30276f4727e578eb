#include "pb_corpus.hpp"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <climits>
#include <iterator>
#include <random>

#include "obfl_catalogue.pb.h"

namespace mivo_test {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

const google::protobuf::FileDescriptor *catalogue_file() { return mivo_wire::mgbl_hello::descriptor()->file(); }

// Nested messages of the entity identifier share the file but are not records.
bool is_record(const Descriptor *d) { return d->name().rfind("tesk_", 0) != 0; }

const Descriptor *find_record(std::string_view name)
{
    const Descriptor *d = catalogue_file()->FindMessageTypeByName(std::string(name));
    return d && is_record(d) ? d : nullptr;
}

class generator {
public:
    explicit generator(uint64_t seed) : rng_(seed) {}

    void randomise(Message &m)
    {
        const Descriptor *d = m.GetDescriptor();
        const Reflection *r = m.GetReflection();
        for (int i = 0; i < d->field_count(); ++i) {
            const FieldDescriptor *f = d->field(i);
            if (f->is_repeated()) {
                const int count = list_length();
                for (int k = 0; k < count; ++k) {
                    add_value(m, r, f);
                }
            } else if (chance(1, 2)) {
                set_value(m, r, f);
            }
        }
    }

private:
    bool chance(unsigned num, unsigned den) { return rng_() % den < num; }
    size_t below(size_t n) { return rng_() % n; }

    int list_length()
    {
        switch (below(8)) {
        case 0:
        case 1:
        case 2: return 0;
        case 3: return 100 + static_cast<int>(below(60));
        default: return 1 + static_cast<int>(below(5));
        }
    }

    // Half the time an edge value, else a random number of random width so
    // that every varint length turns up.
    uint32_t u32()
    {
        static const uint32_t edges[] = {0, 1, 127, 128, 16383, 16384, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        if (chance(1, 2)) {
            return edges[below(std::size(edges))];
        }
        return static_cast<uint32_t>(rng_() >> (32 + below(32)));
    }
    int32_t i32()
    {
        static const int32_t edges[] = {0, 1, -1, -2, 127, 128, -128, INT32_MAX, INT32_MIN, INT32_MIN + 1};
        if (chance(1, 2)) {
            return edges[below(std::size(edges))];
        }
        return static_cast<int32_t>(u32());
    }
    uint64_t u64()
    {
        static const uint64_t edges[] = {0, 1, 127, 128, 0xFFFFFFFFull, 0x100000000ull, 1ull << 63, UINT64_MAX};
        if (chance(1, 2)) {
            return edges[below(std::size(edges))];
        }
        return rng_() >> below(64);
    }

    // Valid UTF-8 without NUL: our strings are NUL-terminated.
    std::string text()
    {
        static const char *const pieces[] = {"a", "Z", "0", " ", "~", "\x7f", "\xc3\xa9", "\xe2\x82\xac",
                                             "\xf0\x9d\x84\x9e", "\xe6\x97\xa5\xe6\x9c\xac"};
        size_t n = 0;
        switch (below(4)) {
        case 0: return {};
        case 1: n = 300 + below(200); break;
        default: n = 1 + below(20); break;
        }
        std::string s;
        while (s.size() < n) {
            s += pieces[below(std::size(pieces))];
        }
        return s;
    }
    std::string blob()
    {
        size_t n = 0;
        switch (below(5)) {
        case 0: return {};
        case 1: n = 300 + below(200); break;
        case 2: return std::string(1 + below(8), '\0');
        default: n = 1 + below(20); break;
        }
        std::string s(n, '\0');
        for (char &c : s) {
            c = chance(1, 4) ? '\0' : static_cast<char>(rng_());
        }
        return s;
    }

    void set_value(Message &m, const Reflection *r, const FieldDescriptor *f)
    {
        switch (f->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32: r->SetUInt32(&m, f, u32()); break;
        case FieldDescriptor::CPPTYPE_INT32: r->SetInt32(&m, f, i32()); break;
        case FieldDescriptor::CPPTYPE_UINT64: r->SetUInt64(&m, f, u64()); break;
        case FieldDescriptor::CPPTYPE_BOOL: r->SetBool(&m, f, chance(1, 2)); break;
        case FieldDescriptor::CPPTYPE_STRING:
            r->SetString(&m, f, f->type() == FieldDescriptor::TYPE_BYTES ? blob() : text());
            break;
        case FieldDescriptor::CPPTYPE_MESSAGE: nested(*r->MutableMessage(&m, f)); break;
        default: break; // the catalogue uses no other type
        }
    }
    void add_value(Message &m, const Reflection *r, const FieldDescriptor *f)
    {
        switch (f->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32: r->AddUInt32(&m, f, u32()); break;
        case FieldDescriptor::CPPTYPE_INT32: r->AddInt32(&m, f, i32()); break;
        case FieldDescriptor::CPPTYPE_UINT64: r->AddUInt64(&m, f, u64()); break;
        case FieldDescriptor::CPPTYPE_BOOL: r->AddBool(&m, f, chance(1, 2)); break;
        case FieldDescriptor::CPPTYPE_STRING:
            r->AddString(&m, f, f->type() == FieldDescriptor::TYPE_BYTES ? blob() : text());
            break;
        case FieldDescriptor::CPPTYPE_MESSAGE: nested(*r->AddMessage(&m, f)); break;
        default: break;
        }
    }
    // A third of the nested messages stay present but empty (they still go
    // out as key and length 0).
    void nested(Message &m)
    {
        if (!chance(1, 3)) {
            randomise(m);
        }
    }

    std::mt19937_64 rng_;
};

// Mixes the name into the seed so that the records do not all see the same
// random stream.
uint64_t stream_seed(std::string_view name, uint64_t seed)
{
    uint64_t h = 0xcbf29ce484222325ull;
    for (char c : name) {
        h = (h ^ static_cast<unsigned char>(c)) * 0x100000001b3ull;
    }
    return h ^ (seed * 0x9E3779B97F4A7C15ull);
}

} // namespace

std::vector<std::string> catalogue_message_names()
{
    std::vector<std::string> names;
    const auto *file = catalogue_file();
    for (int i = 0; i < file->message_type_count(); ++i) {
        if (is_record(file->message_type(i))) {
            names.push_back(file->message_type(i)->name());
        }
    }
    return names;
}

std::unique_ptr<Message> new_message(std::string_view name)
{
    const Descriptor *d = find_record(name);
    if (!d) {
        return nullptr;
    }
    return std::unique_ptr<Message>(google::protobuf::MessageFactory::generated_factory()->GetPrototype(d)->New());
}

std::unique_ptr<Message> random_message(std::string_view name, uint64_t seed)
{
    auto m = new_message(name);
    if (m) {
        generator(stream_seed(name, seed)).randomise(*m);
    }
    return m;
}

std::string random_message_bytes(std::string_view name, uint64_t seed)
{
    auto m = random_message(name, seed);
    return m ? m->SerializeAsString() : std::string();
}

} // namespace mivo_test
