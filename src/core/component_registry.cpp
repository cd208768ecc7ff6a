// The registry of components: creation, masks, look-up.
#include <sorrel/logger.hpp>
#include <sorrel/tangle_log.h>

#include "core/level_descriptions.hpp"

#include <memory>
#include <mutex>
#include <new>

namespace {

using ComponentsGuard = std::lock_guard<sorrel::CRecursiveMutex>;

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

// Holds the container's mutex and the components lock, for what ends in the container's onComponentAdded.
class CSorrel::RegistryLocks {
public:
    explicit RegistryLocks(CSorrel& logger) : m_logger(logger) { logger.lockContainerAndComponents(); }
    RegistryLocks(const RegistryLocks&) = delete;
    RegistryLocks& operator=(const RegistryLocks&) = delete;
    ~RegistryLocks() {
        m_logger.unlockComponents();
        m_logger.m_container.unlock();
    }

private:
    CSorrel& m_logger;
};

// A re-read holds the container's mutex when it comes here for the components lock, so the container's mutex has to be
// the outer one. But a caller may hold lockComponents() and then log, which takes them the other way round: so nobody
// waits for the components lock while holding the level of the container's mutex that was taken here.
void CSorrel::lockContainerAndComponents() {
    for (;;) {
        m_container.lock();
        try {
            if (m_componentsLock.try_lock()) {
                return;
            }
        } catch (...) {
            m_container.unlock();
            throw;
        }
        m_container.unlock();
        lockComponents();
        unlockComponents();
    }
}

void CSorrel::lockComponents() {
    m_componentsLock.lock();
}

void CSorrel::unlockComponents() {
    m_componentsLock.unlock();
}

sorrel_component* CSorrel::createComponent(const std::string& name, sorrel_level* level,
                                           const std::string& descriptions) {
    const RegistryLocks locks(*this);
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
    m_components.emplace(name, created.get()); // Deliberate: a name that is registered keeps its component.
    sorrel_component* const component = created.release();
    m_container.onComponentAdded(component);
    return component;
}

int CSorrel::updateComponentLevel(const std::string& name, const std::string& level) {
    const unsigned int mask = maskOfDigits(level);
    const RegistryLocks locks(*this);
    if (sorrel_component* const component = getComponentByName(name)) {
        // Deliberate: no closing parenthesis.
        sorrel::sorrel_tangleLog(7, "Updating level for existing component %s (old level: 0x%x, new level: 0x%x",
                                 name.c_str(), component->mask, mask);
        __atomic_store_n(&component->mask, mask, __ATOMIC_RELAXED);
        m_container.onComponentAdded(component);
    } else {
        sorrel::sorrel_tangleLog(7, "Creating new component %s (level=0x%x)", name.c_str(), mask);
        sorrel_level configured{0, mask};
        createComponent(name, &configured, "");
    }
    return 0;
}

void CSorrel::setComponentLevel(const std::string& name, unsigned int mask) {
    const ComponentsGuard guard(m_componentsLock);
    if (sorrel_component* const component = getComponentByName(name)) {
        __atomic_store_n(&component->mask, mask, __ATOMIC_RELAXED);
    }
}

sorrel_component* CSorrel::getComponentByName(const std::string& name) {
    const auto found = m_components.find(name);
    return found != m_components.end() ? found->second : nullptr;
}

void CSorrel::getComponentNames(std::vector<std::string>& out) {
    const ComponentsGuard guard(m_componentsLock);
    for (const auto& entry : m_components) {
        out.push_back(entry.first);
    }
}

void CSorrel::getLevelDescriptions(const std::string& name, std::vector<std::pair<unsigned int, std::string>>& out) {
    const ComponentsGuard guard(m_componentsLock);
    if (const sorrel_component* const component = getComponentByName(name)) {
        out.insert(out.end(), component->levelDescriptions.begin(), component->levelDescriptions.end());
    }
}
