// What the test plug-ins share: a target and a factory that write every call into the journal. Each plug-in has its own
// copy, hence the unnamed namespace.
#ifndef SORREL_TESTS_JOURNAL_TARGET_HPP
#define SORREL_TESTS_JOURNAL_TARGET_HPP

#include "plugin_journal.hpp"

#include <sorrel/component.hpp>
#include <sorrel/log_target.hpp>

extern "C" {
SORREL_API void dynamic_module_init(void* argument);
SORREL_API void dynamic_module_done();
SORREL_API sorrel::IClassFactory* getClassFactory();
}

namespace {

inline PluginEvent newEvent(const std::string& kind, const std::string& library = SORREL_TEST_PLUGIN_NAME) {
    PluginEvent event;
    event.library = library;
    event.kind = kind;
    return event;
}

inline PluginEvent creationEvent(const std::string& className, const sorrel::CLogTargetParameters& parameters) {
    PluginEvent event = newEvent("create");
    const auto tag = parameters.params.find("tag");
    if (tag != parameters.params.end()) {
        event.library += ":" + tag->second;
    }
    event.text = className;
    event.params = parameters.params;
    return event;
}

class JournalTarget : public sorrel::ILogTarget {
public:
    explicit JournalTarget(const PluginEvent& creation) : m_library(creation.library) {}

    void log(int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text) override {
        PluginEvent event = newEvent("log", m_library);
        event.processId = processId;
        event.depth = depth;
        event.seconds = seconds;
        event.microseconds = microseconds;
        event.level = level;
        event.threadName = threadName;
        event.componentName = componentName;
        event.functionName = functionName;
        event.text = text;
        journal::add(event);
    }

    void onComponentAdded(sorrel_component* component) override {
        PluginEvent event = newEvent("component", m_library);
        event.component = component;
        event.componentName = component->name;
        journal::add(event);
    }

    std::string getName() override {
        journal::add(newEvent("getName", m_library));
        return m_library;
    }

    bool isSyslogTarget() override {
        journal::add(newEvent("isSyslog", m_library));
        return false;
    }

    void setAppname(const std::string& name) override {
        PluginEvent event = newEvent("appname", m_library);
        event.text = name;
        journal::add(event);
    }

    const std::string& library() const { return m_library; }

private:
    std::string m_library;
};

// No destructor on purpose: targets are released while the process exits, after the statics of a plug-in are gone.
template <class Target>
class JournalFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        const PluginEvent creation = creationEvent(className, dynamic_cast<sorrel::CLogTargetParameters&>(*params));
        journal::add(creation);
        return new Target(creation);
    }

    void destroyObject(sorrel::IDynamicObject* object) override {
        journal::add(newEvent("destroy", dynamic_cast<Target&>(*object).library()));
        delete object;
    }
};

} // namespace

#endif // SORREL_TESTS_JOURNAL_TARGET_HPP
