// The null target as a plug-in.
#include "null_target.hpp"

extern "C" SORREL_API sorrel::IClassFactory* getClassFactory();

namespace {

class NullTargetFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string&, sorrel::IDynamicObjectCreationParams*) override {
        return new NullTarget;
    }
    void destroyObject(sorrel::IDynamicObject* object) override { delete object; }
};

NullTargetFactory factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    return &factory;
}
