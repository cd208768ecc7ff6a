// A directory of its own in which a benchmark's configuration lies, found through SORL_PATH.
#ifndef SORREL_BENCH_CONFIGURATION_DIRECTORY_HPP
#define SORREL_BENCH_CONFIGURATION_DIRECTORY_HPP

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

// Removed when the program ends.
class ConfigurationDirectory {
public:
    ConfigurationDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "sorrel-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
        m_path = pattern;
        setenv("SORL_PATH", m_path.c_str(), 1);
    }
    ConfigurationDirectory(const ConfigurationDirectory&) = delete;
    ConfigurationDirectory& operator=(const ConfigurationDirectory&) = delete;
    ~ConfigurationDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::filesystem::path& path() const { return m_path; }

    // Writes in place, which is what a running program follows.
    void write(const std::string& name, const std::string& text) const { std::ofstream(m_path / name) << text; }

private:
    std::filesystem::path m_path;
};

#endif // SORREL_BENCH_CONFIGURATION_DIRECTORY_HPP
