// The entry of a plug-in that makes targets of one class.
#ifndef SORREL_BENCH_TARGET_FACTORY_HPP
#define SORREL_BENCH_TARGET_FACTORY_HPP

#include <sorrel/log_target.hpp>

extern "C" SORREL_API sorrel::IClassFactory* getClassFactory();

namespace {

template <class Target>
class TargetFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string&, sorrel::IDynamicObjectCreationParams*) override {
        return new Target;
    }
    void destroyObject(sorrel::IDynamicObject* object) override { delete object; }
};

} // namespace

#endif // SORREL_BENCH_TARGET_FACTORY_HPP
