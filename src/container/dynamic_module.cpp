// Opening, using and closing one plug-in library.
#include <sorrel/dynamic_module.hpp>
#include <sorrel/tangle_log.h>

#include "container/hooks.hpp"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <syslog.h>

namespace {

template <typename Function>
Function* findFunction(void* handle, const char* symbol) {
    return reinterpret_cast<Function*>(dlsym(handle, symbol));
}

} // namespace

namespace sorrel {

class IClassFactory; // what the function returns; of no concern here

CDynamicModule::CDynamicModule(const std::string& libPath) : m_handle(nullptr), m_libPath(libPath) {}

CDynamicModule::~CDynamicModule() {
    if (m_handle == nullptr) {
        return;
    }
    if (auto* const done = findFunction<void()>(m_handle, "dynamic_module_done")) {
        sorrel_tangleLog(LOG_DEBUG, "Calling done function for shared library \"%s\"", m_libPath.c_str());
        done();
    }
    sorrel_tangleLog(LOG_DEBUG, "closing shared library \"%s\"", m_libPath.c_str());
    const int rc = dlclose(m_handle);
    if (rc != 0) {
        const int closeErrno = errno;
        const char* const error = lastError();
        sorrel_tangleLog(LOG_WARNING, "dlclose() failed, rc=%i, dlerror=%s, errno=%s (lib=%s)", rc,
                         error != nullptr ? error : "<null>", std::strerror(closeErrno), m_libPath.c_str());
    }
    m_handle = nullptr;
    callHook(librariesChangedHook);
}

int CDynamicModule::load(void* argument) {
    if (m_handle != nullptr) {
        sorrel_tangleLog(LOG_DEBUG, "Dynamic module %s already loaded", m_libPath.c_str());
        return -1;
    }
    // Deliberate: the symbols of a target library are visible to all others.
    m_handle = dlopen(m_libPath.c_str(), RTLD_LAZY | RTLD_GLOBAL);
    if (m_handle == nullptr) {
        // Deliberate: the text of errno, not that of dlerror().
        sorrel_tangleLog(LOG_ERR, "Unable to open shared library \"%s\" - error=%s", m_libPath.c_str(),
                         std::strerror(errno));
        return -1;
    }
    callHook(librariesChangedHook);
    sorrel_tangleLog(LOG_DEBUG, "opened shared library \"%s\"", m_libPath.c_str());
    if (auto* const init = findFunction<void(void*)>(m_handle, "dynamic_module_init")) {
        sorrel_tangleLog(LOG_DEBUG, "calling init function for shared library \"%s\"", m_libPath.c_str());
        init(argument);
    }
    return 0;
}

void* CDynamicModule::getClassFactory() const {
    static constexpr char kSymbol[] = "getClassFactory";
    if (m_handle == nullptr) {
        sorrel_tangleLog(LOG_ERR, "Library not loaded");
        return nullptr;
    }
    auto* const getFactory = findFunction<IClassFactory*()>(m_handle, kSymbol);
    if (getFactory == nullptr) {
        sorrel_tangleLog(LOG_ERR, "Symbol \"%s\" not found in shared library \"%s\"", kSymbol, m_libPath.c_str());
        return nullptr;
    }
    sorrel_tangleLog(LOG_DEBUG, "Retrieving classfactory from shared library \"%s\"", m_libPath.c_str());
    return getFactory();
}

const char* CDynamicModule::lastError() const {
    return dlerror();
}

const std::string& CDynamicModule::getLibPath() const {
    return m_libPath;
}

void CDynamicModule::keepMapped() {
    dlopen(m_libPath.c_str(), RTLD_LAZY | RTLD_NOLOAD);
}

} // namespace sorrel
