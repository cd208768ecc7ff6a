// The re-read of the configuration: which file, what its lines mean, and what is unloaded afterwards.
#include <sorrel/cfread.h>
#include <sorrel/dynamic_module.hpp>
#include <sorrel/log_target_container.hpp>
#include <sorrel/tangle_log.h>

#include "container/container_scope.hpp"
#include "core/leaf_lock.hpp"
#include "core/text_split.hpp"

#include <iterator>
#include <mutex>
#include <syslog.h>
#include <unistd.h>
#include <utility>

namespace sorrel {

std::string CLogTargetContainer::getDefaultCfgFilename() const {
    return m_configPath + "/sorrel.cfg";
}

std::string CLogTargetContainer::getAppCfgFilename() const {
    return cfgFilenameOf(currentAppname());
}

std::string CLogTargetContainer::cfgFilenameOf(const std::string& appname) const {
    return m_configPath + "/sorrel-" + appname + ".cfg";
}

void CLogTargetContainer::storeAppname(const std::string& name) {
    const std::lock_guard<std::mutex> guard(leafLock);
    m_appname = name;
}

std::string CLogTargetContainer::currentAppname() const {
    const std::lock_guard<std::mutex> guard(leafLock);
    return m_appname;
}

// One file is read, never both: that of the application replaces the default one.
std::string CLogTargetContainer::chooseCfgFilename() const {
    const std::string appname = currentAppname();
    if (!appname.empty()) {
        std::string file = cfgFilenameOf(appname);
        if (access(file.c_str(), F_OK) == 0) {
            return file;
        }
    }
    return getDefaultCfgFilename();
}

// What the targets throw in the sweep is kept; all else is thrown at once.
void CLogTargetContainer::reread(FirstException& thrown) {
    const std::string file = chooseCfgFilename();
    sorrel_tangleLog(LOG_DEBUG, "logtarget-container: reading sorrel-config from file \"%s\"", file.c_str());
    __atomic_store_n(&m_hasSyslogTarget, false, __ATOMIC_RELAXED);
    const int rc = cfread_parse_with_callback(file.c_str(), Callback_Cfread, this, 0);
    if (isGone(*this)) {
        return;
    }
    if (rc != 0) {
        // Deliberate: without the prefix of the other messages, and nothing is unloaded. The seen flags stay as the
        // part that could be read has left them.
        sorrel_tangleLog(LOG_ERR, "unable to read sorrel-config \"%s\" - giving up.", file.c_str());
        return;
    }
    unloadUnseenTargets(thrown);
}

int CLogTargetContainer::Callback_Cfread(const char* key, const char* value, void* ctx) {
    if (key == nullptr || value == nullptr || ctx == nullptr) {
        return 1;
    }
    return static_cast<CLogTargetContainer*>(ctx)->OnCallbackCfRead(key, value);
}

int CLogTargetContainer::OnCallbackCfRead(const std::string& key, const std::string& value) {
    if (isGone(*this)) {
        return 1;
    }
    sorrel_tangleLog(LOG_DEBUG, "callback \"%s\"=\"%s\"", key.c_str(), value.c_str());
    const std::string token = trimmed(key);
    if (token == "target") {
        return onCfgParamTarget(token, trimmed(value));
    }
    if (token == "component") {
        return onCfgParamComponent(token, trimmed(value));
    }
    sorrel_tangleLog(LOG_DEBUG, "ignoring unknown config token \"%s\"", token.c_str());
    return 0;
}

void CLogTargetContainer::unloadUnseenTargets(FirstException& thrown) {
    for (auto it = m_targets.begin(); it != m_targets.end();) {
        CPluggableLogModule& entry = it->second;
        if (!Scope::enterTarget(*this, entry)) {
            return;
        }
        thrown.keepFrom([&] { sweepTarget(entry); });
        if (!Scope::leaveTarget(*this)) {
            return;
        }
        it = entry.module == nullptr ? m_targets.erase(it) : std::next(it);
    }
}

// Asks a target that stays whether it writes to syslog. The entry of one that goes has no library afterwards.
void CLogTargetContainer::sweepTarget(CPluggableLogModule& entry) {
    if (std::exchange(entry.seen, false)) { // cleared first: a target that throws now can be unloaded later
        if (entry.target->isSyslogTarget()) {
            __atomic_store_n(&m_hasSyslogTarget, true, __ATOMIC_RELAXED);
        }
        return;
    }
    sorrel_tangleLog(LOG_INFO, "logtarget-container: unloading log-target %s (and its library \"%s\")",
                     entry.target->getName().c_str(), entry.module->getLibPath().c_str());
    if (!isGone(*this)) {
        releaseTarget(entry);
    }
}

} // namespace sorrel
