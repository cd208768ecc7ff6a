// Throws std::runtime_error("throwing: KIND") from the operation that the parameter `throw` names: create, log,
// component, getName, isSyslog or appname.
#include "journal_target.hpp"

#include <stdexcept>

namespace {

class ThrowingTarget : public JournalTarget {
public:
    explicit ThrowingTarget(const PluginEvent& creation) : JournalTarget(creation) {
        const auto found = creation.params.find("throw");
        m_throwingKind = found == creation.params.end() ? "" : found->second;
        maybeThrow("create");
    }

    void log(int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text) override {
        JournalTarget::log(processId, depth, seconds, microseconds, level, threadName, componentName, functionName,
                           text);
        maybeThrow("log");
    }

    void onComponentAdded(sorrel_component* component) override {
        JournalTarget::onComponentAdded(component);
        maybeThrow("component");
    }

    std::string getName() override {
        std::string name = JournalTarget::getName();
        maybeThrow("getName");
        return name;
    }

    bool isSyslogTarget() override {
        const bool answer = JournalTarget::isSyslogTarget();
        maybeThrow("isSyslog");
        return answer;
    }

    void setAppname(const std::string& name) override {
        JournalTarget::setAppname(name);
        maybeThrow("appname");
    }

private:
    void maybeThrow(const std::string& kind) const {
        if (kind == m_throwingKind) {
            throw std::runtime_error("throwing: " + kind);
        }
    }

    std::string m_throwingKind;
};

JournalFactory<ThrowingTarget> factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return &factory;
}
