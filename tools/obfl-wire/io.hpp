// Reading input and writing output with every failure reported: the file's
// name and the system's reason, never a half-written result taken for done.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace obfl_wire {

// "FILE: reason" (the reason as strerror gives it).
struct io_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The whole of a file, or of standard input for "" and "-". Throws io_error.
std::string read_all(const std::string &file);

// Standard output through one buffer, written with write(2) and checked.
class output {
public:
    void put(std::string_view text) { buffer_ += text; }
    std::string &buffer() { return buffer_; }
    // Writes what is buffered once it is worth a system call (streams).
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

} // namespace obfl_wire
