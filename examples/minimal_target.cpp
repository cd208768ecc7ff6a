// A complete log target: writes to standard error, each line with its priority in front, as systemd's journal reads it.
// `target=/path/to/minimal.so, tag=door` adds a tag.
#include <sorrel/target_library.hpp>

#include <cstdio>
#include <string>

namespace {

class MinimalTarget final : public sorrel::NamedLogTarget {
public:
    explicit MinimalTarget(sorrel::TargetParameters& parameters)
        : NamedLogTarget(parameters), m_tag(parameters.text("tag", "")) {}

    void log(int /*processId*/, int /*depth*/, long long /*seconds*/, int /*microseconds*/, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& /*functionName*/,
             const std::string& text) override {
        std::fprintf(stderr, "<%d>%s %s/%s: %s\n", sorrel_level_to_prio(level), m_tag.c_str(), componentName.c_str(),
                     threadName.c_str(), text.c_str());
    }

private:
    const std::string m_tag;
};

} // namespace

SORREL_TARGET_LIBRARY(MinimalTarget, "minimal")
