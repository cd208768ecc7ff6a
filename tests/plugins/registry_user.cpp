// Uses the registry of components from inside its log.
#include "journal_target.hpp"

#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

namespace {

class RegistryUser final : public sorrel::ILogTarget {
public:
    void log(int /*processId*/, int /*depth*/, long long /*seconds*/, int /*microseconds*/, sorrel_level* /*level*/,
             const std::string& /*threadName*/, const std::string& componentName, const std::string& /*functionName*/,
             const std::string& /*text*/) override {
        std::vector<std::pair<unsigned int, std::string>> descriptions;
        sorrel::sorrel_get_level_descriptions(componentName, descriptions);
        sorrel::sorrel_get_component_by_name(componentName);
        sorrel::sorrel_set_component_level("set in log", sorrel::sorrel_get_component_level("set in log") + 1);
        if (++m_messages % 16 == 0) {
            CSorrel::getInstance()->updateComponentLevel("updated in log", "1");
        }
    }

    void onComponentAdded(sorrel_component* component) override { sorrel::sorrel_get_component_level(component->name); }

    std::string getName() override { return SORREL_TEST_PLUGIN_NAME; }
    bool isSyslogTarget() override { return sorrel::sorrel_get_component_level("set in log") == 1; }
    void setAppname(const std::string& /*name*/) override { CSorrel::getInstance()->getAppname(); }

private:
    unsigned int m_messages = 0;
};

class RegistryUserFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& /*className*/,
                                         sorrel::IDynamicObjectCreationParams* /*params*/) override {
        CSorrel::getInstance()->updateComponentLevel("set in log", "0");
        return new RegistryUser;
    }

    void destroyObject(sorrel::IDynamicObject* object) override { delete object; }
};

RegistryUserFactory factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    return &factory;
}
