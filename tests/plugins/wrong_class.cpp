// A factory whose object is no log target. It has one such object, which it does not give away.
#include "journal_target.hpp"

namespace {

class SomethingElse : public sorrel::IDynamicObject {};

SomethingElse somethingElse;

class WrongClassFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        journal::add(creationEvent(className, dynamic_cast<sorrel::CLogTargetParameters&>(*params)));
        return &somethingElse;
    }

    void destroyObject(sorrel::IDynamicObject*) override { journal::add(newEvent("destroy")); }
};

WrongClassFactory factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return &factory;
}
