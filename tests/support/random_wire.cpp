#include "random_message.hpp"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

namespace mivo_test {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

// The descriptor set protoc made at build time from `obfl-wire proto`.
struct schema {
    google::protobuf::DescriptorPool pool;
    google::protobuf::DynamicMessageFactory factory{&pool};
    std::string package;

    schema()
    {
        std::ifstream in(MIVO_CATALOGUE_DESCRIPTORS, std::ios::binary);
        google::protobuf::FileDescriptorSet set;
        for (bool ok = set.ParseFromIstream(&in); const auto &file : set.file()) {
            package = file.package();
            ok = ok && pool.BuildFile(file) != nullptr;
            if (!ok) {
                std::fprintf(stderr, "cannot read %s\n", MIVO_CATALOGUE_DESCRIPTORS);
                std::abort();
            }
        }
    }
};

schema &the_schema()
{
    static schema s;
    return s;
}

class generator {
public:
    explicit generator(uint64_t seed) : rng_(seed) {}

    void randomise(Message &m)
    {
        const Descriptor *d = m.GetDescriptor();
        for (int i = 0; i < d->field_count(); ++i) {
            const FieldDescriptor *f = d->field(i);
            for (int k = f->is_repeated() ? list_length(f) : int(below(2)); k > 0; --k) {
                add_value(m, f);
            }
        }
    }

private:
    size_t below(size_t n) { return rng_() % n; }

    // Runs of numbers also grow past 256 elements, beyond the decoder's stack
    // block; lists of strings and records stay shorter, since every check of
    // bounded writing costs the square of their encoded size.
    int list_length(const FieldDescriptor *f)
    {
        const size_t pick = below(8);
        const bool numbers = f->cpp_type() != FieldDescriptor::CPPTYPE_STRING &&
                             f->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE;
        return pick < 3 ? 0 : pick == 3 ? 100 + int(below(numbers ? 300 : 60)) : 1 + int(below(5));
    }

    // Half the time an edge value, else a random number of random width so
    // that every varint length turns up.
    uint64_t u64()
    {
        static const uint64_t edges[] = {0, 1, 127, 128, 0xFFFFFFFFull, 0x100000000ull, 1ull << 63, UINT64_MAX};
        return below(2) ? edges[below(std::size(edges))] : rng_() >> below(64);
    }
    uint32_t u32()
    {
        static const uint32_t edges[] = {0, 1, 127, 128, 16383, 16384, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        return below(2) ? edges[below(std::size(edges))] : uint32_t(rng_() >> (32 + below(32)));
    }
    int32_t i32()
    {
        static const int32_t edges[] = {0, 1, -1, -2, 127, 128, -128, INT32_MAX, INT32_MIN, INT32_MIN + 1};
        return below(2) ? edges[below(std::size(edges))] : int32_t(u32());
    }

    // Valid UTF-8 without NUL: our strings are NUL-terminated.
    std::string text()
    {
        static const char *const pieces[] = {"a", "Z", "0", " ", "~", "\x7f", "\xc3\xa9", "\xe2\x82\xac",
                                             "\xf0\x9d\x84\x9e", "\xe6\x97\xa5\xe6\x9c\xac"};
        const size_t pick = below(4);
        const size_t n = pick == 0 ? 0 : pick == 1 ? 300 + below(200) : 1 + below(20);
        std::string s;
        while (s.size() < n) {
            s += pieces[below(std::size(pieces))];
        }
        return s;
    }
    // Empty, long, short, or short and all NUL.
    std::string blob()
    {
        const size_t pick = below(5);
        std::string s(pick == 0 ? 0 : pick == 1 ? 300 + below(200) : pick == 2 ? 1 + below(8) : 1 + below(20), '\0');
        for (char &c : s) {
            c = pick != 2 && below(4) ? static_cast<char>(rng_()) : '\0';
        }
        return s;
    }

    // Singular fields are set, repeated ones appended to, through one path.
    void add_value(Message &m, const FieldDescriptor *f)
    {
        const Reflection *r = m.GetReflection();
        const bool rep = f->is_repeated();
        switch (f->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32: rep ? r->AddUInt32(&m, f, u32()) : r->SetUInt32(&m, f, u32()); break;
        case FieldDescriptor::CPPTYPE_INT32: rep ? r->AddInt32(&m, f, i32()) : r->SetInt32(&m, f, i32()); break;
        case FieldDescriptor::CPPTYPE_UINT64: rep ? r->AddUInt64(&m, f, u64()) : r->SetUInt64(&m, f, u64()); break;
        case FieldDescriptor::CPPTYPE_BOOL: rep ? r->AddBool(&m, f, below(2)) : r->SetBool(&m, f, below(2)); break;
        case FieldDescriptor::CPPTYPE_STRING: {
            const std::string s = f->type() == FieldDescriptor::TYPE_BYTES ? blob() : text();
            rep ? r->AddString(&m, f, s) : r->SetString(&m, f, s);
            break;
        }
        case FieldDescriptor::CPPTYPE_MESSAGE: {
            // A third stay present but empty (still sent, as key and length 0).
            Message *nested = rep ? r->AddMessage(&m, f) : r->MutableMessage(&m, f);
            if (below(3)) {
                randomise(*nested);
            }
            break;
        }
        default: std::abort(); // a type the catalogue has never used: extend the generator
        }
    }

    std::mt19937_64 rng_;
};

// Mixes the name into the seed so that the messages do not all see the same
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

const Descriptor *schema_message(std::string_view name)
{
    schema &s = the_schema();
    return s.pool.FindMessageTypeByName(s.package + "." + std::string(name));
}

std::unique_ptr<Message> new_message(const Descriptor *type)
{
    return std::unique_ptr<Message>(the_schema().factory.GetPrototype(type)->New());
}

std::unique_ptr<Message> random_message(const Descriptor *type, uint64_t seed)
{
    auto m = new_message(type);
    generator(stream_seed(type->name(), seed)).randomise(*m);
    return m;
}

std::string random_wire(std::string_view name, uint64_t seed)
{
    const Descriptor *type = schema_message(name);
    if (!type) {
        std::fprintf(stderr, "no message %.*s in the schema\n", int(name.size()), name.data());
        std::abort();
    }
    return random_message(type, seed)->SerializeAsString();
}

} // namespace mivo_test
