// The target libraries of tests/plugins.
#ifndef SORREL_TESTS_PLUGIN_PATH_HPP
#define SORREL_TESTS_PLUGIN_PATH_HPP

#include <dlfcn.h>
#include <string>

// The absolute path of a test plug-in: pluginPath("recording").
inline std::string pluginPath(const std::string& name) {
    return SORREL_TEST_PLUGIN_DIR "/" + name + ".so";
}

// Whether a library is open in this process.
inline bool isLibraryOpen(const std::string& path) {
    void* const handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return false;
    }
    dlclose(handle);
    return true;
}

#endif // SORREL_TESTS_PLUGIN_PATH_HPP
