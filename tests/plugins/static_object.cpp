// Has a static object, whose end is written down as "static", and a target that logs "farewell" with the component
// "static_object" from its destructor.
#include "journal_target.hpp"

#include <sorrel/sorrel.h>

namespace {

// The names of a component's bits would be added again by each creation.
sorrel_component* sameComponentEachTime() {
    sorrel_component* const known = sorrel::sorrel_get_component_by_name("static_object");
    return known != nullptr ? known : sorrel_create_component("static_object", SR_ALL, "64=INFO");
}

struct StaticObject {
    StaticObject() = default;
    StaticObject(const StaticObject&) = delete;
    StaticObject& operator=(const StaticObject&) = delete;
    ~StaticObject() { journal::add(newEvent("static")); }
};

StaticObject staticObject;

class FarewellTarget : public JournalTarget {
public:
    explicit FarewellTarget(const PluginEvent& creation)
        : JournalTarget(creation), m_component(sameComponentEachTime()) {}
    FarewellTarget(const FarewellTarget&) = delete;
    FarewellTarget& operator=(const FarewellTarget&) = delete;
    ~FarewellTarget() override { _sorrel(m_component, SR_INFO, "farewell"); }

private:
    sorrel_component* m_component;
};

JournalFactory<FarewellTarget> factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return &factory;
}
