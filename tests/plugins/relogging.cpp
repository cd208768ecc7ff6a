// Answers each message with another one, "again: TEXT" of the component "relogging"; what comes in meanwhile, its own
// answer included, is not answered.
#include "journal_target.hpp"

#include <sorrel/sorrel.h>

namespace {

class RelogTarget : public JournalTarget {
public:
    using JournalTarget::JournalTarget;

    void log(int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text) override {
        JournalTarget::log(processId, depth, seconds, microseconds, level, threadName, componentName, functionName,
                           text);
        if (!m_answering) {
            m_answering = true;
            _sorrel(component(), SR_INFO, "again: %s", text.c_str());
            m_answering = false;
        }
    }

private:
    sorrel_component* component() {
        if (m_component == nullptr) {
            m_component = sorrel_create_component("relogging", SR_ALL, "64=INFO");
        }
        return m_component;
    }

    sorrel_component* m_component = nullptr;
    bool m_answering = false;
};

JournalFactory<RelogTarget> factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return &factory;
}
