// What every message passes before anything else happens. Shared with src/api.
#ifndef SORREL_CORE_MESSAGE_PATH_HPP
#define SORREL_CORE_MESSAGE_PATH_HPP

#include <atomic>
#include <cerrno>

class CSorrel;

namespace sorrel {

// The configured logger once it has been built whole, null before. Read with acquire.
extern std::atomic<CSorrel*> configuredLogger;

// Leaves the caller's errno as it was when the scope was entered.
class ErrnoKeeper {
public:
    ErrnoKeeper() : m_errno(errno) {}
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ~ErrnoKeeper() { restore(); }

    void restore() const { errno = m_errno; }

private:
    const int m_errno;
};

} // namespace sorrel

#endif // SORREL_CORE_MESSAGE_PATH_HPP
