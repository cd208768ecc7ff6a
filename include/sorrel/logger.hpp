// The logger: the registry of components, the road of a message, and the container of log targets below it.
//
// Applications use the functions of <sorrel/sorrel.h>, which forward to the members here.
#ifndef SORREL_LOGGER_HPP
#define SORREL_LOGGER_HPP

#include <sorrel/component.hpp>
#include <sorrel/component_cfg_update_sink.hpp>
#include <sorrel/level.h>
#include <sorrel/log_target_container.hpp>

#include <cstdarg>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace sorrel {
struct ForkAccess;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // no virtual destructor: it would take a slot

// Locks. A recursive components lock guards the registry and every change to a component's mask and descriptions.
// Operations that tell the container of a component take the container's mutex first, then the components lock; when
// that is busy they let go of the mutex before they wait. Inside a re-read or a fan-out the mutex stays held: so do not
// hold lockComponents() while logging or creating components.
//
// fork(2). A child has working loggers, whatever other threads did at the moment of the fork. It has no thread; the
// first call that needs the container sets up a watch of its own. vfork(2) and raw clone(2) are not looked after.
//
// Exit. An exit handler ends the two loggers of the process. Afterwards, also in threads that still run, its operations
// do nothing: look-ups find nothing, creation gives ms_OOMFallbackComp.
class SORREL_API CSorrel : public sorrel::IComponentCfgUpdateSink {
public:
    // What the logger knows of one thread; made when the thread first logs, is named or is traced, and destroyed when
    // the thread ends. Nobody but its thread touches it.
    struct thread_data_t {
        std::deque<std::string> functionStack; // functions entered and not yet left, the innermost at the front
        int depth = 0;                         // entered minus left; may be negative
        std::string threadName = "<no name>";  // "<thrd done>" after done
    };
    static thread_local thread_data_t thread_data;

    // What creation returns when there is no memory for a component: named "OOM-Ohno!", everything passes. In no
    // registry.
    static sorrel_component ms_OOMFallbackComp;

    // Builds the container with the directory /etc/sorrel; `configured` says whether it reads and watches the
    // configuration. Passes on what that throws.
    explicit CSorrel(bool configured);
    CSorrel(const CSorrel&) = delete;
    CSorrel& operator=(const CSorrel&) = delete;

    // Ends the container first. Components are left allocated: pointers to them stay valid.
    ~CSorrel();

    // The two loggers of the process, never null, built at their first call, by one thread while others wait, and
    // destroyed when the process exits. A call from inside the construction (a target that logs while it is created by
    // the first read) gets the logger as far as it stands. When building throws, the next call tries again.
    static CSorrel* getInstance();          // reads and watches the configuration
    static CSorrel* getInstance_NoSorrel(); // does neither

    // As sorrel_create_component in <sorrel/sorrel.h>.
    sorrel_component* createComponent(const std::string& name, sorrel_level* level, const std::string& descriptions);

    // Sets the mask of a component, creating it where it does not exist, and tells the targets. Returns 0.
    int updateComponentLevel(const std::string& name, const std::string& level) override;

    // As the functions of the same names in <sorrel/sorrel.h>. getComponentByName takes no lock.
    void setComponentLevel(const std::string& name, unsigned int mask);
    sorrel_component* getComponentByName(const std::string& name);
    void getComponentNames(std::vector<std::string>& out);
    void getLevelDescriptions(const std::string& name, std::vector<std::pair<unsigned int, std::string>>& out);

    // Take and give back the components lock; recursive. Locking throws std::system_error.
    void lockComponents();
    void unlockComponents();

    // As sorrel_set_applicationname and, without telling the container, its _nosorrel form.
    void setApplicationname(const std::string& name);
    void setApplicationname_Nosorrel(const std::string& name);

    // "[no-appname-set]" until a name is set. The string lasts as long as the process and never changes: a new name is
    // another string.
    const std::string& getAppname() const;

    // Formats a message and hands it to the container, if the level passes; null arguments and levels that do not pass
    // do nothing. The argument list is used up.
    void log(sorrel_component* component, sorrel_level* level, const char* format, va_list args)
        __attribute__((format(printf, 4, 0)));

    // As sor_syslog, with all its warnings.
    void sorSyslog(sorrel_component* component, sorrel_level* level, const char* format, va_list args)
        __attribute__((format(printf, 4, 0)));

    // Thread naming and function tracing, as sorrel_init, sorrel_done, sorrel_enter_function, sorrel_leave_function.
    // Their own messages always go through the configured logger.
    void init(sorrel_component* component, const char* threadName, bool announce);
    void done(sorrel_component* component);
    void enterFunction(sorrel_component* component, const char* functionName);
    void leaveFunction(sorrel_component* component);

    // As sorrel_dump.
    void dump(sorrel_component* component, sorrel_level* level, const void* data, unsigned int length);

    // Replaces `out` by one line of a hex dump: "0x", the offset in eight hexadecimal digits, the `count` bytes (at
    // most 16) from data[offset] on, and the same as characters. `data` is the start of the whole block.
    static void formatDumpLine(std::string& out, unsigned int offset, const unsigned char* data, unsigned int count);

    // As sorrel_level_to_prio.
    static int level_to_prio(sorrel_level* level);

private:
    class ComponentsScope;
    class RegistryScope;
    friend class LoggerSlot;
    friend struct sorrel::ForkAccess;

    SORREL_LOCAL CSorrel(bool configured, const std::string& lastingName, std::string&& ownName);
    SORREL_LOCAL const char* directoryAfterSetUp();
    SORREL_LOCAL void storeAppname(const std::string& name);
    SORREL_LOCAL bool enterComponents();
    SORREL_LOCAL bool noteComponentsHeld();
    SORREL_LOCAL void leaveComponents();
    SORREL_LOCAL bool enterContainer();
    SORREL_LOCAL void leaveContainer();
    SORREL_LOCAL bool enterRegistry();
    SORREL_LOCAL void giveBackComponentsLock();
    SORREL_LOCAL void registerComponent(sorrel_component& component);

    std::map<std::string, sorrel_component*> m_components;
    sorrel::CRecursiveMutex m_componentsLock;
    std::string m_appname;
    sorrel::CLogTargetContainer m_container;
    unsigned int m_number;        // of this logger in the index of components
    const std::string* m_namedAs; // the lasting copy of the application name; read and written atomically
    int m_componentsDepth;        // how often the components lock is held; guarded by it
    int m_registryDepth;          // how often this logger itself holds the container's mutex; guarded by that
};

#pragma GCC diagnostic pop

namespace sorrel {
using ::CSorrel;
}

#endif // SORREL_LOGGER_HPP
