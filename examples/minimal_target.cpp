// A complete log target: writes to standard error, each line with its priority in front, as systemd's journal reads it.
// `target=/path/to/minimal.so, tag=door` adds a tag.
#include <sorrel/target_library.hpp>

#include <cerrno>
#include <cstdio>
#include <string>

namespace {

class MinimalTarget final : public sorrel::MessageTarget {
public:
    explicit MinimalTarget(sorrel::TargetParameters& parameters)
        : MessageTarget(parameters), m_tag(parameters.text("tag", "")) {}

private:
    int deliver(const sorrel::Message& message) override {
        const int count = std::fprintf(stderr, "<%d>%s %s/%s: %s\n", message.priority(), m_tag.c_str(),
                                       message.componentName.c_str(), message.threadName.c_str(), message.text.c_str());
        return count < 0 ? errno : 0;
    }

    const std::string m_tag;
};

} // namespace

SORREL_TARGET_LIBRARY(MinimalTarget, "minimal")
