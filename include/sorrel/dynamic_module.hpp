// One shared library opened at run time.
#ifndef SORREL_DYNAMIC_MODULE_HPP
#define SORREL_DYNAMIC_MODULE_HPP

#include <string>

#ifndef SORREL_API
#define SORREL_API __attribute__((visibility("default"))) /* part of the exported interface */
#endif

#ifndef SORREL_LOCAL
#define SORREL_LOCAL __attribute__((visibility("hidden"))) /* not part of the exported interface */
#endif

namespace sorrel {

// Owns the handle of a plug-in: opened by load, closed by the destructor, never reopened in place. The entry points of
// a plug-in are described in <sorrel/log_target.hpp>. What happens is written to the diagnostic channel
// (sorrel_tangleLog). Not synchronised: one thread at a time. Exceptions of the library's init function and of its
// getClassFactory pass through; one that escapes dynamic_module_done ends the process.
class SORREL_API CDynamicModule {
public:
    // Copies the path, which load hands to dlopen(3) as it stands. Opens nothing.
    explicit CDynamicModule(const std::string& libPath);
    CDynamicModule(const CDynamicModule&) = delete;
    CDynamicModule& operator=(const CDynamicModule&) = delete;

    // Calls the library's dynamic_module_done, where it has one, and closes it. Does nothing when it is not open.
    virtual ~CDynamicModule();

    // Opens the library, its symbols visible to all others, and calls its dynamic_module_init, where it has one, with
    // `argument`. Returns 0; or -1 when it cannot be opened (errno is that of dlopen, often 0) or is open already.
    int load(void* argument);

    // Calls the library's getClassFactory, anew each time, and returns what it returns: a pointer to an IClassFactory
    // that belongs to the library. Null when the library is not open or has no such function.
    void* getClassFactory() const;

    // dlerror(3) as it stands, which also clears it; may be null. Valid until the thread's next dlerror.
    const char* lastError() const;

    // The path given to the constructor; lives as long as the module.
    const std::string& getLibPath() const;

    // Keeps the open library mapped for good, also when the module is destroyed: for an exception that is on its way
    // and whose code may live there.
    SORREL_LOCAL void keepMapped();

private:
    void* m_handle; // null while the library is not open
    std::string m_libPath;
};

} // namespace sorrel

#endif // SORREL_DYNAMIC_MODULE_HPP
