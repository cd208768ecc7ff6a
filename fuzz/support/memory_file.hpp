// A file without a disk, for code that opens files by their path.
#ifndef SORREL_FUZZ_MEMORY_FILE_HPP
#define SORREL_FUZZ_MEMORY_FILE_HPP

#include <string>

class MemoryFile {
public:
    MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile();

    // Valid as long as this object.
    const std::string& path() const { return m_path; }

    // Replaces what the file holds.
    void write(const std::string& content);

    std::string read() const;

private:
    int m_fd;
    std::string m_path;
};

#endif // SORREL_FUZZ_MEMORY_FILE_HPP
