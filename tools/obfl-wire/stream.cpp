#include "stream.hpp"

#include "record_json.hpp"
#include "wire_walk.hpp"

namespace obfl_wire {

std::string stream_item::where() const
{
    if (!bytes.data() && text.data() != nullptr) {
        return "message " + std::to_string(number) + " (line " + std::to_string(line) + ", from byte " +
               std::to_string(at) + "): ";
    }
    return "message " + std::to_string(number) + " (from byte " + std::to_string(at) + "): ";
}

bool stream::next(stream_item &item, std::string &error)
{
    item = stream_item{};
    item.number = ++number_;
    item.at = in_.position();
    return form_ == delimited ? next_delimited(item, error) : form_ == lines ? next_line(item) : next_json(item);
}

bool stream::next_delimited(stream_item &item, std::string &error)
{
    if (!in_.fill(1)) {
        return false;
    }
    size_t n = 1;
    while ((in_.data()[n - 1] & 0x80) != 0) {
        if (n == 10) {
            error = item.where() + "its length is a varint of more than ten bytes";
            return false;
        }
        if (!in_.fill(++n)) {
            error = item.where() + "its length runs past the end of the input";
            return false;
        }
    }
    const varint_bytes length = varint_at(in_.data(), 0);
    if (length.over_64 || length.value > largest_message) {
        error = item.where() + "length " + (length.over_64 ? std::string("over 64 bits") : std::to_string(length.value)) +
                " is more than a message may hold (2 GiB)";
        return false;
    }
    const auto size = static_cast<size_t>(length.value);
    if (!in_.fill(n + size)) {
        error = item.where() + "length " + std::to_string(size) + " runs past the end of the input (" +
                std::to_string(in_.data().size() - n) + " bytes left)";
        return false;
    }
    item.bytes = in_.data().subspan(n, size);
    in_.consume(n + size);
    return true;
}

bool stream::next_line(stream_item &item)
{
    std::string_view line;
    for (uint64_t at = in_.position(); in_.line(line); at = in_.position()) {
        item.line = line_++;
        if (line.find_first_not_of(" \t\r") != std::string_view::npos) {
            item.at = at; // blank lines before it left out
            item.text = line;
            return true;
        }
    }
    --number_;
    return false;
}

bool stream::next_json(stream_item &item)
{
    // Skip the space before the text.
    for (;;) {
        if (!in_.fill(1)) {
            --number_;
            return false;
        }
        const char c = static_cast<char>(in_.data()[0]);
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
            break;
        }
        line_ += c == '\n' ? 1 : 0;
        column_ = c == '\n' ? 1 : column_ + 1;
        in_.consume(1);
    }
    item.line = line_;
    item.column = column_;
    item.at = in_.position();
    // An object or array ends where its brackets close; anything else at the end of its line.
    const char first = static_cast<char>(in_.data()[0]);
    const bool bracketed = first == '{' || first == '[';
    json_scan scan;
    size_t n = 0;
    for (bool more = true; more;) {
        if (n == in_.data().size() && !in_.fill(n + 1)) {
            break; // cut short: the parser says what is missing
        }
        const auto buffered = in_.data();
        for (; n < buffered.size(); ++n) {
            const char c = static_cast<char>(buffered[n]);
            if (!bracketed && c == '\n') {
                more = false;
                break;
            }
            scan.step(c);
            line_ += c == '\n' ? 1 : 0;
            column_ = c == '\n' ? 1 : column_ + 1;
            if (bracketed && scan.depth == 0 && !scan.in_string) {
                ++n;
                more = false;
                break;
            }
        }
    }
    item.text = std::string_view(reinterpret_cast<const char *>(in_.data().data()), n);
    in_.consume(n);
    return true;
}

} // namespace obfl_wire
