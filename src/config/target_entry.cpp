// The `target` lines of the configuration: a library, and the parameters of its target.
#include <sorrel/dynamic_module.hpp>
#include <sorrel/log_target_container.hpp>
#include <sorrel/tangle_log.h>

#include "container/container_scope.hpp"
#include "core/text_split.hpp"

#include <cerrno>
#include <cstring>
#include <memory>
#include <syslog.h>
#include <vector>

namespace {

using sorrel::sorrel_tangleLog;

// Only pieces of the form name=value count, and of a name that repeats the first.
void addParameter(std::map<std::string, std::string>& params, const std::string& text) {
    const std::vector<std::string> pieces = sorrel::splitAt(text, "=");
    if (pieces.size() == 2) {
        params.emplace(sorrel::trimmed(pieces[0]), sorrel::trimmed(pieces[1]));
    }
}

// Null when the library cannot be used, which has been reported.
sorrel::ILogTarget* createTarget(sorrel::CDynamicModule& module, sorrel::CLogTargetParameters& parameters) {
    const char* const path = module.getLibPath().c_str();
    if (module.load(nullptr) != 0) {
        const int loadErrno = errno;
        sorrel_tangleLog(LOG_ERR, "logtarget-container: Unable to load the logtarget-library \"%s\" - errno=%i(%s)",
                         path, loadErrno, std::strerror(loadErrno));
        return nullptr;
    }
    auto* const factory = static_cast<sorrel::IClassFactory*>(module.getClassFactory());
    if (factory == nullptr) {
        sorrel_tangleLog(LOG_ERR, "logtarget-container: Unable to retrieve the classfactory from lib \"%s\"", path);
        return nullptr;
    }
    // Deliberate: an object that is no log target is not handed back to the factory.
    auto* const target = dynamic_cast<sorrel::ILogTarget*>(
        factory->createObject(sorrel::ILogTarget::LOG_TARGET_CLASS_NAME, &parameters));
    if (target == nullptr) {
        sorrel_tangleLog(LOG_ERR, "logtarget-container: Unable to create LogTarget from lib \"%s\"", path);
        return nullptr;
    }
    sorrel_tangleLog(LOG_DEBUG, "will load target %s from lib %s", target->getName().c_str(), path);
    return target;
}

} // namespace

namespace sorrel {

int CLogTargetContainer::onCfgParamTarget(const std::string& /*key*/, const std::string& value) {
    const std::vector<std::string> pieces = splitAt(value, ",");
    const std::string libPath = pieces.empty() ? std::string() : trimmed(pieces[0]);
    CLogTargetParameters parameters;
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        addParameter(parameters.params, pieces[i]);
    }
    parameters.params.emplace(TARGET_TOKEN_APPLICATION_NAME(), currentAppname());

    const auto loaded = m_targets.find(libPath);
    if (loaded != m_targets.end()) {
        sorrel_tangleLog(LOG_DEBUG, "logtarget-container: library \"%s\" already loaded", libPath.c_str());
        loaded->second.seen = true;
        return 0;
    }
    std::unique_ptr<CDynamicModule> module(new CDynamicModule(libPath));
    std::map<std::string, CPluggableLogModule> fresh; // once there is a target, nothing may fail any more
    CPluggableLogModule& entry = fresh[libPath];
    entry = {module.get(), nullptr, true};
    if (!Scope::enterTarget(*this, entry)) {
        return 0;
    }
    try {
        entry.target = createTarget(*module, parameters);
    } catch (...) {
        module.release(); // stays open for good, since the code of the exception may live in it; there is no target
        throw;
    }
    if (!Scope::leaveTarget(*this)) {
        module.release(); // stays as it is, since the process ends
        return 0;
    }
    if (entry.target != nullptr) {
        m_targets.merge(fresh);
        module.release(); // the record owns it
    }
    return 0;
}

} // namespace sorrel
