// The bytes of a file, as they are at the moment.
#include "descriptor.hpp"
#include "recorder_format.hpp"
#include "ring_reader.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sorrelctl {

namespace {

[[noreturn]] void fail(const char* what, int error) {
    throw RingError(fmt::format("{}: {}", what, std::strerror(error)));
}

} // namespace

// A copy, not a mapping: somebody may cut the file off at any time.
std::vector<char> readFile(const std::string& path) {
    constexpr off_t kLargest = off_t{1} * 1024 * 1024 * 1024; // of the rings that are made
    Descriptor file;
    if (!file.take(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))) { // a pipe must not make us wait
        fail("cannot be opened", errno);
    }
    if (!S_ISREG(file.status().st_mode)) {
        throw RingError("is no file");
    }
    if (file.status().st_size > kLargest) {
        throw RingError(fmt::format("is no ring: {} bytes are too many", file.status().st_size));
    }
    std::vector<char> bytes(static_cast<std::size_t>(file.status().st_size));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = read(file.get(), bytes.data() + done, bytes.size() - done);
        if (count == -1 && errno != EINTR) {
            fail("cannot be read", errno);
        }
        if (count == 0) {
            break;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    bytes.resize(done);
    return bytes;
}

} // namespace sorrelctl
