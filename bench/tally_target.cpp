// The target that counts, as a plug-in. Its tally is the one of the program.
#include "tally_target.hpp"
#include "target_factory.hpp"

namespace {

TargetFactory<TallyTarget> factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    return &factory;
}
