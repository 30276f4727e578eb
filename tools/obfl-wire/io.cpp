#include "io.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace obfl_wire {
namespace {

[[noreturn]] void fail(const std::string &name, int error)
{
    throw io_error(name + ": " + std::strerror(error));
}

} // namespace

std::string read_all(const std::string &file)
{
    const bool standard = file.empty() || file == "-";
    const std::string name = standard ? "standard input" : file;
    const int fd = standard ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        fail(name, errno);
    }
    std::string text;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
        text.reserve(static_cast<size_t>(st.st_size) + 1);
    }
    char chunk[1 << 16];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            text.append(chunk, static_cast<size_t>(n));
        } else if (n == 0) {
            break;
        } else if (errno != EINTR) {
            const int error = errno;
            if (!standard) {
                ::close(fd);
            }
            fail(name, error);
        }
    }
    if (!standard) {
        ::close(fd);
    }
    return text;
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
