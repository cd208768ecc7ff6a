// The functions of namespace sorrel: each forwards to one member of the configured logger.
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>

namespace {

class ComponentsScope {
public:
    explicit ComponentsScope(CSorrel& logger) : m_logger(logger) { m_logger.lockComponents(); }
    ComponentsScope(const ComponentsScope&) = delete;
    ComponentsScope& operator=(const ComponentsScope&) = delete;
    ~ComponentsScope() { m_logger.unlockComponents(); }

private:
    CSorrel& m_logger;
};

} // namespace

sorrel_component* sorrel::sorrel_get_component_by_name(const std::string& name) {
    return CSorrel::getInstance()->getComponentByName(name);
}

std::string sorrel::sorrel_get_name_by_component(const sorrel_component* component) {
    return component != nullptr ? component->name : std::string();
}

void sorrel::sorrel_get_component_names(std::vector<std::string>& names) {
    CSorrel::getInstance()->getComponentNames(names);
}

void sorrel::sorrel_get_level_descriptions(const std::string& component,
                                           std::vector<std::pair<unsigned int, std::string>>& descriptions) {
    CSorrel::getInstance()->getLevelDescriptions(component, descriptions);
}

void sorrel::sorrel_set_component_level(const std::string& name, unsigned int mask) {
    CSorrel::getInstance()->setComponentLevel(name, mask);
}

unsigned int sorrel::sorrel_get_component_level(const std::string& name) {
    const ComponentsScope scope(*CSorrel::getInstance());
    const sorrel_component* const component = sorrel_get_component_by_name(name);
    return component != nullptr ? component->mask : 0;
}

int sorrel::sorrel_level_to_syslog_prio(sorrel_level* level) {
    return CSorrel::level_to_prio(level);
}
