// The null target as a plug-in.
#include "null_target.hpp"
#include "target_factory.hpp"

namespace {

TargetFactory<NullTarget> factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    return &factory;
}
