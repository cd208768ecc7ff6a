// The container of log targets: loads them as the configuration says, and hands every message to each of them.
#ifndef SORREL_LOG_TARGET_CONTAINER_HPP
#define SORREL_LOG_TARGET_CONTAINER_HPP

#include <sorrel/component_cfg_update_sink.hpp>
#include <sorrel/log_target.hpp>

#include <cerrno>
#include <chrono>
#include <map>
#include <pthread.h>
#include <string>
#include <system_error>
#include <thread>

#ifndef SORREL_LOCAL
#define SORREL_LOCAL __attribute__((visibility("hidden"))) /* not part of the exported interface */
#endif

namespace sorrel {

struct ForkAccess;
class CLogTargetContainer;
SORREL_LOCAL void endAtExit(CLogTargetContainer& container, const int& loggersDepth,
                            std::chrono::steady_clock::time_point deadline);

// A recursive POSIX mutex and nothing else: its size and place are those of the pthread_mutex_t.
class SORREL_LOCAL CRecursiveMutex {
public:
    // A failure to initialise is not reported, on purpose; the mutex then gets its static initial value and works.
    CRecursiveMutex() {
        pthread_mutexattr_t attribute;
        if (pthread_mutexattr_init(&attribute) == 0 &&
            pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE) == 0 &&
            pthread_mutex_init(&m_mutex, &attribute) == 0) {
            pthread_mutexattr_destroy(&attribute);
            return;
        }
        const pthread_mutex_t recursive = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
        m_mutex = recursive;
    }
    CRecursiveMutex(const CRecursiveMutex&) = delete;
    CRecursiveMutex& operator=(const CRecursiveMutex&) = delete;
    ~CRecursiveMutex() { pthread_mutex_destroy(&m_mutex); }

    // Throws std::system_error with the error number of pthread_mutex_lock.
    void lock() { check(pthread_mutex_lock(&m_mutex)); }

    // False when another thread holds the mutex; every other failure is thrown as by lock.
    bool try_lock() {
        const int rc = pthread_mutex_trylock(&m_mutex);
        if (rc == EBUSY) {
            return false;
        }
        check(rc);
        return true;
    }

    // Its result is ignored.
    void unlock() { pthread_mutex_unlock(&m_mutex); }

    pthread_mutex_t* native_handle() { return &m_mutex; }

private:
    static void check(int rc) {
        if (rc != 0) {
            throw std::system_error(rc, std::generic_category());
        }
    }

    pthread_mutex_t m_mutex;
};

// An active container reads its configuration when it is built, and again when the watched file is rewritten or the
// application is named; a passive one never reads anything.
//
// Locks. One recursive mutex, taken through the virtual lock() and unlock(), guards the targets, every call into a
// target, the has-syslog flag and the application name. A derived class may replace the locking; note that the base
// constructor and the worker thread may call lock() before the derived part stands and after it is gone.
//
// Exceptions. lock() throws std::system_error; whatever a target throws passes through the operation that called it,
// with the mutex released; the worker swallows it. When targets are unloaded, asked whether they write to syslog, or
// told the name, it passes through after the others had their turn, the first exception only. What the container
// reports goes to sorrel_tangleLog.
//
// Nesting. A re-read that is asked for from inside an operation of a target is done when the outermost operation is
// over, and setAppname returns at once then, with the name stored; several requests become one.
class SORREL_API CLogTargetContainer {
public:
    // What the worker is told, as a 4-byte integer through the pipe. Other values are ignored.
    enum thread_notification : int {
        THREAD_NOTIFICATION_TERMINATE = 0, // end
        THREAD_NOTIFICATION_APPNAME = 1,   // move the watch to the file of the application
    };

    // `configPath` is the directory of the configuration files. With `active` set, the environment variable SORL_PATH
    // replaces it (not in set-user-id programs), the configuration is read, and a worker thread watches the file. When
    // it cannot be watched (the default file must exist) the container works all the same. `sink`, which is not owned
    // and must outlive the container, receives the levels of the `component` lines; they are ignored when it is null.
    CLogTargetContainer(const std::string& configPath, bool active, IComponentCfgUpdateSink* sink);
    CLogTargetContainer(const CLogTargetContainer&) = delete;
    CLogTargetContainer& operator=(const CLogTargetContainer&) = delete;

    // Ends and joins the worker, closes the descriptors, then releases the targets, without taking the mutex. When the
    // worker cannot be told, the process ends through std::terminate. Nobody may be using the container any more. In a
    // forked child the worker and the watch are the parent's, and are left alone.
    virtual ~CLogTargetContainer();

    // Tells every target that a component was created or changed, in the order of their library paths.
    virtual void onComponentAdded(sorrel_component* component);

    // Whether a loaded target said at the last re-read that it writes to syslog. Takes no lock.
    virtual bool hasSyslogTarget() const;

    // Stores the application's name, re-reads the configuration, tells every target, and tells the worker to watch the
    // application's own file. The name that is stored already does nothing at all.
    virtual void setAppname(const std::string& name);

    virtual void lock();
    virtual void unlock();

    // Hands one message to every target, in ascending order of their library paths, arguments unchanged; see
    // ILogTarget::log for their meaning. Applies no filter.
    void log(int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text);

    // Re-reads the configuration: the file of the application when a name is set and the file exists, otherwise the
    // default file. Loads the targets that it names, sets the levels that it gives, and, when the file could be read to
    // its end, unloads the targets that it does not name. A target that stays is left alone, whatever its parameters.
    void onCfgUpdate();

    // "DIRECTORY/sorrel.cfg" and "DIRECTORY/sorrel-NAME.cfg"; the name is put in as it stands.
    std::string getDefaultCfgFilename() const;
    std::string getAppCfgFilename() const;

    // The callback of the file's reader: hands a line to OnCallbackCfRead of the container at `ctx`. Returns 1, which
    // ends the reading, when an argument is null.
    static int Callback_Cfread(const char* key, const char* value, void* ctx);

    // One line of the file: trims both, and hands them to the handler of the key. Unknown keys are ignored. Returns 0.
    int OnCallbackCfRead(const std::string& key, const std::string& value);

    // `target=PATH, name=value, ...`: loads the library and creates its target, or marks a loaded one as still
    // configured. The mutex must be held. Returns 0 always; a library that cannot be used is reported and left out.
    int onCfgParamTarget(const std::string& key, const std::string& value);

    // `component=NAME, BINARY DIGITS`: passes both to the sink. The mutex must be held. Returns 0 always.
    int onCfgParamComponent(const std::string& key, const std::string& value);

    // Opens epoll, inotify, the watch on the default file and the pipe: 0, or -1 at the first that fails; what was
    // opened before is in part left open, for the destructor to close.
    int init_fds();

    // Adds inotify and the pipe to the epoll set: 0 or -1.
    int init_epoll_evts();

    // Writes one notification for the worker: 0, or -1 when there is no pipe or the write fails. Blocks while the pipe
    // is full. The mutex must not be held.
    int notifyThread(thread_notification notification);
    int threadNotifyTerminate();
    int threadNotfiyAppname(); // the spelling is part of the interface

    // The worker's entry and loop; they return when the worker ends. Nothing is done for null.
    static void outerThreadStartup(CLogTargetContainer* container);
    int threadStartup();
    int threadEventLoop();

    // Moves the watch to the application's file, if that exists. Runs on the worker, without the mutex.
    void onAppnameChanged();

    // Close a descriptor, or remove a watch, unless it is -1, and set it to -1. A watch is left as it is when the
    // inotify descriptor is closed.
    void close_fd(int& fd);
    void close_wd(int& wd);

protected:
    std::string m_configPath;
    std::map<std::string, CPluggableLogModule> m_targets; // by library path as written in the file
    std::thread* m_worker;                                // null when none runs
    CRecursiveMutex m_mutex;
    bool m_hasSyslogTarget;
    std::string m_appname;
    IComponentCfgUpdateSink* m_updateSink; // not owned
    int m_epollFd;                         // this and the following: -1 when not open
    int m_inotifyFd;
    int m_watchFd;
    int m_pipeFds[2]; // read end, write end

private:
    class Scope;          // an operation that holds the mutex; src/container/container_scope.hpp
    class FirstException; // of a walk that goes past targets that throw; the same
    struct TellerNote;
    friend struct ForkAccess;
    friend void endAtExit(CLogTargetContainer& container, const int& loggersDepth,
                          std::chrono::steady_clock::time_point deadline);

    static constexpr int kMaxNesting = 16;
    static constexpr int kMaxRereads = 16; // in a row, each asked for by the one before

    // Which file a descriptor stood for when it was opened; the inode is 0 before.
    struct DescriptorIdentity {
        unsigned long long device;
        unsigned long long inode;
        char link[32]; // its text in /proc/self/fd, which tells apart what has no inode of its own; empty if not known
    };
    enum DescriptorIndex { EPOLL_FD, INOTIFY_FD, PIPE_READ_END, PIPE_WRITE_END };

    SORREL_LOCAL void startUp();
    SORREL_LOCAL void watch();
    SORREL_LOCAL void startWorker();
    SORREL_LOCAL std::thread spawnWatcher();
    SORREL_LOCAL void stopWorker();
    SORREL_LOCAL void keepDescriptor(int fd, DescriptorIndex index);
    SORREL_LOCAL static bool standsFor(int fd, const DescriptorIdentity& kept);
    SORREL_LOCAL bool isOwnDescriptor(int fd, DescriptorIndex index) const;
    SORREL_LOCAL bool isPipeLost() const;
    SORREL_LOCAL void closeOwn(int& fd, DescriptorIndex index);
    SORREL_LOCAL void closeDescriptors();
    SORREL_LOCAL void forgetParent();
    SORREL_LOCAL bool giveBackMutex(const int& loggersDepth);
    SORREL_LOCAL bool waitForOthers(std::chrono::steady_clock::time_point deadline);
    SORREL_LOCAL bool othersAreInTarget() const;
    SORREL_LOCAL bool isBusy(const CPluggableLogModule& entry) const;
    SORREL_LOCAL void releaseTarget(CPluggableLogModule& entry);
    SORREL_LOCAL void releaseTargets();
    SORREL_LOCAL void storeAppname(const std::string& name);
    SORREL_LOCAL std::string currentAppname() const;
    SORREL_LOCAL std::string cfgFilenameOf(const std::string& appname) const;
    SORREL_LOCAL std::string chooseCfgFilename() const;
    SORREL_LOCAL void reread(FirstException& thrown);
    template <typename Operation>
    SORREL_LOCAL void perform(Operation operation);
    SORREL_LOCAL void doWhatWaits(Scope& scope, bool& tellWorker);
    SORREL_LOCAL void rereadRenamed(Scope& scope, FirstException& thrown);
    SORREL_LOCAL void tellWorkerTheName();
    SORREL_LOCAL void watchAgain();
    SORREL_LOCAL void unloadUnseenTargets(FirstException& thrown);
    SORREL_LOCAL void sweepTarget(CPluggableLogModule& entry);
    SORREL_LOCAL void onInotifyEvent();
    SORREL_LOCAL bool onNotification();

    // Guarded by the mutex, but at exit the first three are looked at without it.
    int m_depth;                                    // operations that have not returned, all of one thread
    const CPluggableLogModule* m_busy[kMaxNesting]; // the target that each of them is in, or null
    int m_tellers;                                  // threads that are about to tell the worker the name
    bool m_rereadWanted;                            // asked for while an operation was on
    bool m_renamed;                                 // the targets and the worker are still to be told the name
    bool m_watchAgain;                              // a forked child: set up the watch that the parent had
    bool m_rereadFirst;                             // the worker begins with a re-read
    int m_processId;                                // whose worker and descriptors these are
    DescriptorIdentity m_identities[4];             // of epoll, inotify, and the pipe's two ends
};

} // namespace sorrel

#endif // SORREL_LOG_TARGET_CONTAINER_HPP
