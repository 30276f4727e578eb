// Reading input and writing output with every failure reported: the file's
// name and the system's reason, never a half-written result taken for done.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace obfl_wire {

// "FILE: reason" (the reason as strerror gives it).
struct io_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Standard output through one buffer, written with write(2) and checked.
class output {
public:
    void put(std::string_view text) { buffer_ += text; }
    std::string &buffer() { return buffer_; }
    // Writes what is buffered once it is worth a system call.
    void flush_if_large()
    {
        if (buffer_.size() >= 1 << 16) {
            flush();
        }
    }
    void flush(); // throws io_error
    void close(); // flush, then close standard output and check that too

private:
    std::string buffer_;
};

// A file, or standard input for "" and "-", read as it comes: a stream is
// taken message by message from a window that holds one message and what
// arrived with it, so memory does not grow with the stream. Before every
// read that may wait, what the output holds is written, so no finished line
// waits for the next message. Throws io_error.
class input {
public:
    // follow: at the end of a regular file, wait for it to grow, as tail -f
    // does, until interrupted. warn says that a followed file was truncated.
    input(const std::string &file, output *out, bool follow = false, void (*warn)(const std::string &) = nullptr);
    ~input();
    input(const input &) = delete;
    input &operator=(const input &) = delete;

    // Reads until at least n bytes are buffered past the position; false when
    // the input ends first.
    bool fill(size_t n) { return end_ - start_ >= n || fill_more(n); }
    // What is buffered from the position on.
    std::span<const uint8_t> data() const { return {buffer_.data() + start_, end_ - start_}; }
    void consume(size_t n) { start_ += n, consumed_ += n; }
    uint64_t position() const { return consumed_; }
    // The next line without its end (\n, \r\n); false at the end. Valid until the next call.
    bool line(std::string_view &out);
    // Everything from the position to the end. Valid until the next call.
    std::string_view rest();
    const std::string &name() const { return name_; }

private:
    bool fill_more(size_t n);
    bool read_more();

    std::string name_;
    int fd_;
    bool standard_;
    bool follow_;
    output *out_;
    void (*warn_)(const std::string &);
    std::vector<uint8_t> buffer_;
    size_t start_ = 0, end_ = 0;
    uint64_t consumed_ = 0;
    uint64_t read_ = 0; // bytes read from the file, to see it truncated
};

// The whole of a file, or of standard input for "" and "-". Throws io_error.
std::string read_all(const std::string &file);

} // namespace obfl_wire
