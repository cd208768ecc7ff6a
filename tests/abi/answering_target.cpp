// A log target that answers each message with another one of the same text, and allocates nothing.
#include <sorrel/component.hpp>
#include <sorrel/sorrel.h>
#include <sorrel/target_library.hpp>

namespace {

class AnsweringTarget final : public sorrel::NamedLogTarget {
public:
    explicit AnsweringTarget(const sorrel::TargetParameters& parameters) : NamedLogTarget(parameters) {}

    void log(int, int, long long, int, sorrel_level* level, const std::string&, const std::string&, const std::string&,
             const std::string& text) override {
        if (!m_answering) {
            m_answering = true;
            _sorrel(m_component, level, "%s", text.c_str());
            m_answering = false;
        }
    }
    void onComponentAdded(sorrel_component* component) override { m_component = component; }

private:
    sorrel_component* m_component = nullptr; // the latest
    bool m_answering = false;
};

} // namespace

SORREL_TARGET_LIBRARY(AnsweringTarget, "answering")
