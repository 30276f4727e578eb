#include "io.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace obfl_wire {
namespace {

[[noreturn]] void fail(const std::string &name, int error)
{
    throw io_error(name + ": " + std::strerror(error));
}

constexpr size_t chunk = 1 << 16;

} // namespace

input::input(const std::string &file, output *out, bool follow, void (*warn)(const std::string &))
    : name_(file.empty() || file == "-" ? "standard input" : file), fd_(-1), standard_(file.empty() || file == "-"),
      follow_(follow), out_(out), warn_(warn)
{
    fd_ = standard_ ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
        fail(name_, errno);
    }
    struct stat st {};
    // Only a regular file grows in place; a pipe that ends has ended.
    follow_ = follow_ && ::fstat(fd_, &st) == 0 && S_ISREG(st.st_mode);
}

input::~input()
{
    if (!standard_) {
        ::close(fd_);
    }
}

bool input::read_more()
{
    if (start_ == end_) {
        start_ = end_ = 0;
    } else if (start_ > 0 && buffer_.size() - end_ < chunk) {
        std::memmove(buffer_.data(), buffer_.data() + start_, end_ - start_);
        end_ -= start_;
        start_ = 0;
    }
    if (buffer_.size() - end_ < chunk) {
        buffer_.resize(end_ + chunk);
    }
    if (out_ != nullptr) {
        out_->flush();
    }
    for (;;) {
        const ssize_t n = ::read(fd_, buffer_.data() + end_, buffer_.size() - end_);
        if (n > 0) {
            end_ += static_cast<size_t>(n);
            read_ += static_cast<uint64_t>(n);
            return true;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            fail(name_, errno);
        }
        if (!follow_) {
            return false;
        }
        struct stat st {};
        if (::fstat(fd_, &st) == 0 && static_cast<uint64_t>(st.st_size) < read_) {
            if (warn_ != nullptr) {
                warn_("warning: " + name_ + ": file truncated, reading it again from its start");
            }
            ::lseek(fd_, 0, SEEK_SET);
            read_ = 0;
            start_ = end_ = 0; // a message cut by the truncation is dropped
            continue;
        }
        const timespec pause{0, 200 * 1000 * 1000};
        ::nanosleep(&pause, nullptr);
    }
}

bool input::fill_more(size_t n)
{
    while (end_ - start_ < n) {
        if (!read_more()) {
            return false;
        }
    }
    return true;
}

bool input::line(std::string_view &out)
{
    size_t scanned = 0;
    for (;;) {
        const auto *begin = reinterpret_cast<const char *>(buffer_.data() + start_);
        const size_t have = end_ - start_;
        const void *nl = have > scanned ? std::memchr(begin + scanned, '\n', have - scanned) : nullptr;
        if (nl != nullptr) {
            const auto length = static_cast<size_t>(static_cast<const char *>(nl) - begin);
            out = std::string_view(begin, length);
            consume(length + 1);
            break;
        }
        scanned = have;
        if (!read_more()) {
            if (have == 0) {
                return false;
            }
            out = std::string_view(reinterpret_cast<const char *>(buffer_.data() + start_), have);
            consume(have);
            break;
        }
    }
    if (!out.empty() && out.back() == '\r') {
        out.remove_suffix(1);
    }
    return true;
}

std::string_view input::rest()
{
    struct stat st {};
    if (::fstat(fd_, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
        buffer_.reserve(static_cast<size_t>(st.st_size) + chunk);
    }
    while (read_more()) {
    }
    const std::string_view text(reinterpret_cast<const char *>(buffer_.data() + start_), end_ - start_);
    consume(end_ - start_);
    return text;
}

std::string read_all(const std::string &file)
{
    return std::string(input(file, nullptr).rest());
}

void output::flush()
{
    size_t done = 0;
    while (done < buffer_.size()) {
        const ssize_t n = ::write(STDOUT_FILENO, buffer_.data() + done, buffer_.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            const int error = n < 0 ? errno : EIO;
            buffer_.clear();
            fail("standard output", error);
        }
        done += static_cast<size_t>(n);
    }
    buffer_.clear();
}

void output::close()
{
    flush();
    // A file system may report a failed write only when the file is closed.
    if (::close(STDOUT_FILENO) != 0 && errno != EBADF && errno != EINTR) {
        fail("standard output", errno);
    }
}

} // namespace obfl_wire
