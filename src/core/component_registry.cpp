// The registry of components: creation, masks, look-up.
#include <sorrel/logger.hpp>
#include <sorrel/tangle_log.h>

#include "container/gone.hpp"
#include "core/component_index.hpp"
#include "core/level_descriptions.hpp"

#include <memory>
#include <new>
#include <syslog.h>

namespace {

// Binary digits, most significant first. Every character but '1' is a clear bit; the last 32 count.
unsigned int maskOfDigits(const std::string& digits) {
    unsigned int mask = 0;
    for (const char digit : digits) {
        mask = (mask << 1U) | (digit == '1' ? 1U : 0U);
    }
    return mask;
}

sorrel_component makeFallbackComponent() {
    sorrel_component component{"OOM-Ohno!", 0xffffffffU, {}};
    sorrel::parseLevelDescriptions(component, "");
    return component;
}

} // namespace

sorrel_component CSorrel::ms_OOMFallbackComp = makeFallbackComponent();

// Holds the components lock, or, when the logger is gone, nothing: then nothing may be done.
class CSorrel::ComponentsScope {
public:
    explicit ComponentsScope(CSorrel& logger) : m_logger(logger), m_held(logger.enterComponents()) {}
    ComponentsScope(const ComponentsScope&) = delete;
    ComponentsScope& operator=(const ComponentsScope&) = delete;
    ~ComponentsScope() {
        if (m_held) {
            m_logger.leaveComponents();
        }
    }

    explicit operator bool() const { return m_held; }

private:
    CSorrel& m_logger;
    const bool m_held;
};

// Holds the container's mutex and the components lock, for what ends in the container's onComponentAdded; or nothing.
class CSorrel::RegistryScope {
public:
    explicit RegistryScope(CSorrel& logger) : m_logger(logger), m_held(logger.enterRegistry()) {}
    RegistryScope(const RegistryScope&) = delete;
    RegistryScope& operator=(const RegistryScope&) = delete;
    ~RegistryScope() {
        if (m_held) {
            m_logger.leaveComponents();
            m_logger.leaveContainer();
        }
    }

    explicit operator bool() const { return m_held; }

private:
    CSorrel& m_logger;
    const bool m_held;
};

// False when the logger is gone.
bool CSorrel::enterComponents() {
    if (!sorrel::lockUnlessGone(m_container, m_componentsLock)) {
        return false;
    }
    return noteComponentsHeld();
}

bool CSorrel::noteComponentsHeld() {
    ++m_componentsDepth;
    if (isGone(m_container)) {
        leaveComponents();
        return false;
    }
    return true;
}

void CSorrel::leaveComponents() {
    --m_componentsDepth;
    m_componentsLock.unlock();
}

bool CSorrel::enterContainer() {
    if (!sorrel::lockUnlessGone(m_container, m_container)) {
        return false;
    }
    ++m_registryDepth;
    return true;
}

void CSorrel::leaveContainer() {
    --m_registryDepth;
    m_container.unlock();
}

// A re-read holds the container's mutex when it comes here for the components lock, so the container's mutex has to be
// the outer one. But a caller may hold lockComponents() and then log, which takes them the other way round: so nobody
// waits for the components lock while holding the level of the container's mutex that was taken here.
bool CSorrel::enterRegistry() {
    while (enterContainer()) {
        try {
            if (m_componentsLock.try_lock()) {
                if (noteComponentsHeld()) {
                    return true;
                }
                leaveContainer();
                return false;
            }
        } catch (...) {
            leaveContainer();
            throw;
        }
        leaveContainer();
        if (!enterComponents()) {
            return false;
        }
        leaveComponents();
    }
    return false;
}

// At exit: gives the components lock back as often as the exiting thread holds it. What another thread does with it
// goes on: nothing that it guards is destroyed, and a target that the thread is inside is waited for.
void CSorrel::giveBackComponentsLock() {
    if (!sorrel::takeAtExit(m_componentsLock)) {
        return;
    }
    const int depth = m_componentsDepth;
    m_componentsDepth = 0;
    for (int i = 0; i <= depth; ++i) {
        m_componentsLock.unlock();
    }
}

void CSorrel::lockComponents() {
    enterComponents();
}

// Also when the logger is gone meanwhile, if this thread is the one who holds the lock: others may wait for it.
void CSorrel::unlockComponents() {
    if (!isGone(m_container)) {
        leaveComponents();
    } else if (sorrel::takeAtExit(m_componentsLock)) {
        if (m_componentsDepth > 0) {
            leaveComponents();
        }
        m_componentsLock.unlock();
    }
}

sorrel_component* CSorrel::createComponent(const std::string& name, sorrel_level* level,
                                           const std::string& descriptions) {
    const RegistryScope scope(*this);
    if (!scope) {
        return &ms_OOMFallbackComp;
    }
    sorrel_component* const known = getComponentByName(name);
    if (known != nullptr && !descriptions.empty()) {
        sorrel::parseLevelDescriptions(*known, descriptions);
        m_container.onComponentAdded(known);
        return known;
    }
    std::unique_ptr<sorrel_component> created(new (std::nothrow) sorrel_component());
    if (!created) {
        return &ms_OOMFallbackComp;
    }
    created->name = name;
    created->mask = level != nullptr ? level->mask : 0;
    sorrel::parseLevelDescriptions(*created, descriptions);
    if (known == nullptr) { // Deliberate: a name that is registered keeps its component.
        registerComponent(*created);
    }
    sorrel_component* const component = created.release();
    m_container.onComponentAdded(component);
    return component;
}

// In the map and in the index, or, when memory is out, in neither.
void CSorrel::registerComponent(sorrel_component& component) {
    const auto entry = m_components.emplace(component.name, &component).first;
    try {
        sorrel::addToComponentIndex(m_number, component);
    } catch (...) {
        m_components.erase(entry);
        throw;
    }
}

int CSorrel::updateComponentLevel(const std::string& name, const std::string& level) {
    const unsigned int mask = maskOfDigits(level);
    const RegistryScope scope(*this);
    if (!scope) {
        return 0;
    }
    if (sorrel_component* const component = getComponentByName(name)) {
        // Deliberate: no closing parenthesis.
        sorrel::sorrel_tangleLog(LOG_DEBUG,
                                 "Updating level for existing component %s (old level: 0x%x, new level: 0x%x",
                                 name.c_str(), component->mask, mask);
        __atomic_store_n(&component->mask, mask, __ATOMIC_RELAXED);
        m_container.onComponentAdded(component);
    } else {
        sorrel::sorrel_tangleLog(LOG_DEBUG, "Creating new component %s (level=0x%x)", name.c_str(), mask);
        sorrel_level configured{0, mask};
        createComponent(name, &configured, "");
    }
    return 0;
}

void CSorrel::setComponentLevel(const std::string& name, unsigned int mask) {
    const ComponentsScope scope(*this);
    if (sorrel_component* const component = getComponentByName(name)) {
        __atomic_store_n(&component->mask, mask, __ATOMIC_RELAXED);
    }
}

sorrel_component* CSorrel::getComponentByName(const std::string& name) {
    return isGone(m_container) ? nullptr : sorrel::findInComponentIndex(m_number, name);
}

void CSorrel::getComponentNames(std::vector<std::string>& out) {
    const ComponentsScope scope(*this);
    if (!scope) {
        return;
    }
    for (const auto& entry : m_components) {
        out.push_back(entry.first);
    }
}

void CSorrel::getLevelDescriptions(const std::string& name, std::vector<std::pair<unsigned int, std::string>>& out) {
    const ComponentsScope scope(*this);
    if (const sorrel_component* const component = getComponentByName(name)) {
        out.insert(out.end(), component->levelDescriptions.begin(), component->levelDescriptions.end());
    }
}
