// Logs "logs_everywhere: PLACE" with the component "logs_everywhere" from wherever a target may log, apart from log.
#include "journal_target.hpp"

#include <sorrel/sorrel.h>

namespace {

sorrel_component* ownComponent = nullptr; // set by the init function

void say(const char* place) {
    _sorrel(ownComponent, SR_INFO, "logs_everywhere: %s", place);
}

class ChattyTarget : public JournalTarget {
public:
    explicit ChattyTarget(const PluginEvent& creation) : JournalTarget(creation) { say("constructor"); }

    void onComponentAdded(sorrel_component* component) override {
        JournalTarget::onComponentAdded(component);
        say("onComponentAdded");
    }

    std::string getName() override {
        say("getName");
        return JournalTarget::getName();
    }

    bool isSyslogTarget() override {
        say("isSyslogTarget");
        return JournalTarget::isSyslogTarget();
    }

    void setAppname(const std::string& name) override {
        JournalTarget::setAppname(name);
        say("setAppname");
    }
};

class ChattyFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        say("createObject");
        return m_journalFactory.createObject(className, params);
    }

    void destroyObject(sorrel::IDynamicObject* object) override {
        say("destroyObject");
        m_journalFactory.destroyObject(object);
    }

private:
    JournalFactory<ChattyTarget> m_journalFactory;
};

ChattyFactory factory;

} // namespace

void dynamic_module_init(void*) {
    journal::add(newEvent("init"));
    ownComponent = sorrel_create_component("logs_everywhere", SR_ALL, "64=INFO");
    say("dynamic_module_init");
}

void dynamic_module_done() {
    say("dynamic_module_done");
    journal::add(newEvent("done"));
}

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return &factory;
}
