// A JSON writer that appends to a string as values come, so that a record is
// written while it is walked and never held as a document.
#pragma once

#include <charconv>
#include <string>
#include <string_view>
#include <vector>

#include "text.hpp"

namespace obfl_wire {

class json_out {
public:
    json_out(std::string &out, bool pretty) : out_(out), pretty_(pretty) {}

    void begin_object() { open('{'); }
    void end_object() { close('}'); }
    void begin_array() { open('['); }
    void end_array() { close(']'); }
    void key(std::string_view k)
    {
        before_value();
        append_json_string(out_, k);
        out_ += pretty_ ? ": " : ":";
        after_key_ = true;
    }
    void string(std::string_view s)
    {
        before_value();
        append_json_string(out_, s);
    }
    // A literal written as it is: true, null, or a whole JSON text.
    void literal(std::string_view text)
    {
        before_value();
        out_ += text;
    }
    void boolean(bool b) { literal(b ? "true" : "false"); }
    template <class T>
    void number(T v)
    {
        char buf[24];
        const auto end = std::to_chars(buf, buf + sizeof buf, v).ptr;
        literal(std::string_view(buf, static_cast<size_t>(end - buf)));
    }
    // A member whose value is a number: "k": v.
    template <class T>
    void number(std::string_view k, T v)
    {
        key(k);
        number(v);
    }
    std::string &text() { return out_; }

private:
    void before_value()
    {
        if (after_key_) {
            after_key_ = false;
            return;
        }
        if (!first_.empty()) {
            if (!first_.back()) {
                out_ += ',';
            }
            first_.back() = 0;
            indent(first_.size());
        }
    }
    void open(char c)
    {
        before_value();
        out_ += c;
        first_.push_back(1);
    }
    void close(char c)
    {
        const bool empty = first_.back();
        first_.pop_back();
        if (!empty) {
            indent(first_.size());
        }
        out_ += c;
    }
    void indent(size_t depth)
    {
        if (pretty_) {
            out_ += '\n';
            out_.append(2 * depth, ' ');
        }
    }

    std::string &out_;
    bool pretty_;
    bool after_key_ = false;
    std::vector<char> first_; // per open container: nothing written in it yet
};

} // namespace obfl_wire
