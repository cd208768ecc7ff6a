// A factory that cannot make the object.
#include "journal_target.hpp"

namespace {

class NullObjectFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        journal::add(creationEvent(className, dynamic_cast<sorrel::CLogTargetParameters&>(*params)));
        return nullptr;
    }

    void destroyObject(sorrel::IDynamicObject*) override { journal::add(newEvent("destroy")); }
};

NullObjectFactory factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return &factory;
}
