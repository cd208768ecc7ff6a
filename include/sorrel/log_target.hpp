// The plug-in contract: all that the author of a log target needs. <sorrel/target_library.hpp> writes for them what is
// the same in every target.
//
// A target library is a shared object that exports up to three C functions:
//
//     extern "C" void dynamic_module_init(void* argument);   // optional: right after loading; the argument is null
//     extern "C" void dynamic_module_done();                 // optional: right before unloading
//     extern "C" sorrel::IClassFactory* getClassFactory();   // required: the same factory each time
//
// A line `target=/path/to/library.so, name=value, ...` in the configuration file loads it: the library asks the factory
// for an object of the class "LogTarget" with the parameters of the line, and from then on every message goes to it,
// until a re-read of the file no longer finds the line.
//
// Locks and threads. Everything here runs with the container's recursive mutex held, so that a target needs no lock of
// its own against the library: calls come from any thread, but one at a time. The exception is the end of the process,
// where targets are released without the mutex. A target may log from inside any of its operations: such messages are
// complete messages of their own, and they reach the target itself too, so it must end the recursion. It must not wait
// for another thread that logs. It may name the application: the re-read follows when its operation has returned. A
// target whose operation calls exit() is left as it is.
//
// Exceptions. What a target throws reaches the caller that logged; later targets then do not get that message. On the
// thread that watches the configuration it is swallowed. A library whose init function, factory or getName threw stays
// loaded for good. A target should not throw.
//
// Building. Compile with -fvisibility=hidden and, with g++, -fno-gnu-unique, make the classes final, keep everything
// but the three functions in an unnamed namespace, link with a version script that exports the three alone (libraries
// are opened with RTLD_GLOBAL and would otherwise share each other's code), with -Wl,-z,now and against libsorrel.
#ifndef SORREL_LOG_TARGET_HPP
#define SORREL_LOG_TARGET_HPP

#include <sorrel/component.hpp>
#include <sorrel/level.h>

#include <map>
#include <string>

namespace sorrel {

class CDynamicModule;

// Base of every object that a class factory makes.
class SORREL_API IDynamicObject {
public:
    virtual ~IDynamicObject();
};

// Base of the parameters with which an object is made.
class SORREL_API IDynamicObjectCreationParams {
public:
    virtual ~IDynamicObjectCreationParams();
};

// The class factory of a target library, which owns it. Slot 0 creates, slot 1 destroys; nothing is deleted through
// this interface.
class SORREL_API IClassFactory {
public:
    // Makes an object of the class, or returns null. The parameters belong to the caller and live only during the call:
    // copy what is needed. The library asks for ILogTarget::LOG_TARGET_CLASS_NAME and passes CLogTargetParameters; an
    // object that is not an ILogTarget is rejected, and is not handed back.
    virtual IDynamicObject* createObject(const std::string& className, IDynamicObjectCreationParams* params) = 0;

    // Destroys an object that createObject returned. The library passes the ILogTarget.
    virtual void destroyObject(IDynamicObject* object) = 0;

protected:
    ~IClassFactory() = default;
};

// The parameters of a `target` line by name; names and values are trimmed, and of a name that repeats the first value
// counts. "application-name" is always there: the application's name (empty when none is set) unless the line gives a
// value of its own.
class SORREL_API CLogTargetParameters : public IDynamicObjectCreationParams {
public:
    CLogTargetParameters();
    CLogTargetParameters(const CLogTargetParameters&) = delete;
    CLogTargetParameters& operator=(const CLogTargetParameters&) = delete;
    ~CLogTargetParameters() override;

    std::map<std::string, std::string> params;
};

class SORREL_API ILogTarget : public IDynamicObject {
public:
    // The class name "LogTarget" for which a factory is asked.
    static const std::string LOG_TARGET_CLASS_NAME;

    ~ILogTarget() override;

    // One message. The references are valid during the call only.
    //   processId     of the sender
    //   depth         nesting depth of the sending thread: 0 outside traced functions; may be negative
    //   seconds       wall-clock time since the epoch
    //   microseconds  of that second, 0 to 999999
    //   level         never null, and valid until the process ends
    //   threadName    as set by sorrel_init, else "<no name>"; refers to the sending thread's live record
    //   componentName of the component that the message was logged for
    //   functionName  the innermost traced function, or empty
    //   text          at most 2047 bytes, neither escaped nor checked: control characters and partial UTF-8 may occur
    virtual void log(int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
                     const std::string& threadName, const std::string& componentName, const std::string& functionName,
                     const std::string& text) = 0;

    // A component was created, was given further descriptions, or had its mask set by the configuration. Components
    // that existed before the target was loaded are not announced. The pointer stays valid until the process ends.
    // Called with the registry's lock held as well.
    virtual void onComponentAdded(sorrel_component* component) = 0;

    // The target's name, for diagnostics only.
    virtual std::string getName() = 0;

    // Whether this target writes to syslog. While one does, sor_syslog leaves syslog to it.
    virtual bool isSyslogTarget() = 0;

    // The application was named. The reference is valid during the call only.
    virtual void setAppname(const std::string& name) = 0;
};

// One loaded target library, as the container keeps it.
struct CPluggableLogModule {
    CDynamicModule* module; // owner of the opened library
    ILogTarget* target;     // released through the library's factory; null once that has happened
    bool seen;              // met in the re-read that is going on
};

// The name "application-name" of the parameter that carries the application's name. Lives until the process ends.
SORREL_API const std::string& TARGET_TOKEN_APPLICATION_NAME();

} // namespace sorrel

#endif // SORREL_LOG_TARGET_HPP
