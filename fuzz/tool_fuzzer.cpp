// obfl-wire's own parsing under libFuzzer. The input's first byte picks a
// message (and hex byte strings); the rest is taken as hex text, as raw
// bytes and as JSON. Whatever decodes must print JSON that encodes and
// decodes to the same JSON; whatever JSON encodes must decode. An escaped
// exception, a sanitizer report or an abort here is a finding.
#include <cstdlib>

#include "diagnose.hpp"
#include "nuvex.h"
#include "raw.hpp"
#include "record_json.hpp"

namespace {

using namespace obfl_wire;

void require(bool ok)
{
    if (!ok) {
        std::abort();
    }
}

void check_bytes(const message &m, std::span<const uint8_t> bytes, const json_options &o, bool must_decode)
{
    std::string out, error, again_out;
    const int rc = m.decode(bytes, false, o, out, nullptr, nullptr);
    require(rc == MIVO_NO_ERROR || !must_decode);
    tolerated(bytes, m.schema());
    failure_place(bytes, m.schema());
    raw_json(bytes, o, error, error);
    json j;
    std::vector<uint8_t> again;
    if (rc == MIVO_NO_ERROR) {
        require(parse_json(out, j, error) && m.encode(j, o, again, error));
        require(m.decode(again, false, o, again_out, nullptr, nullptr) == MIVO_NO_ERROR && again_out == out);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const message &m = messages()[data[0] % messages().size()];
    const json_options o{(data[0] & 0x80) != 0, (data[0] & 0x40) != 0, false};
    const std::span<const uint8_t> rest(data + 1, size - 1);
    const std::string_view text(reinterpret_cast<const char *>(rest.data()), rest.size());
    std::vector<uint8_t> bytes;
    if (parse_hex(text, bytes)) {
        check_bytes(m, bytes, o, false);
    }
    check_bytes(m, rest, o, false);
    json in;
    std::string error;
    if (parse_json(text, in, error) && m.encode(in, o, bytes, error)) {
        check_bytes(m, bytes, o, true);
    }
    return 0;
}
