// A directory of a test's own.
#ifndef SORREL_TESTS_TEMP_DIR_HPP
#define SORREL_TESTS_TEMP_DIR_HPP

#include <string>
#include <sys/types.h>

// A fresh directory below $TMPDIR or /tmp, removed with all that it holds. Errors are thrown as std::system_error.
// GoogleTest has a function testing::TempDir, so do not import that namespace as a whole.
class TempDir {
public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();

    // Absolute, without a slash at the end.
    const std::string& path() const { return m_path; }

    // The path of a file in the directory, whether it exists or not.
    std::string file(const std::string& name) const;

    // Rewrites the file in place: the same inode, opened, truncated, written at once and closed.
    void write(const std::string& name, const std::string& text) const;
    void append(const std::string& name, const std::string& text) const;

    std::string read(const std::string& name) const;

private:
    std::string m_path;
    pid_t m_owner; // a forked child leaves the directory alone
};

#endif // SORREL_TESTS_TEMP_DIR_HPP
