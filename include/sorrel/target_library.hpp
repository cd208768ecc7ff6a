// For authors of log targets: a class in, a target library out. <sorrel/log_target.hpp> is the contract itself. C++17.
//
//     namespace {
//
//     class DoorTarget final : public sorrel::MessageTarget {
//     public:
//         explicit DoorTarget(sorrel::TargetParameters& parameters)
//             : MessageTarget(parameters), m_bell(parameters.text("bell")),
//               m_rings(parameters.number("rings", 1, 1, 10)) {}
//
//     private:
//         int deliver(const sorrel::Message& message) override;
//     ...
//     };
//
//     } // namespace
//
//     SORREL_TARGET_LIBRARY(DoorTarget, "door")
//
// The last line defines the factory and the contract's three functions; a library that needs the two optional ones does
// without it, and has its getClassFactory return a TargetFactory<DoorTarget>. A constructor that throws a
// std::exception, a parameter that is wrong and one that nobody has asked for refuse the target: one diagnostic at
// priority 3, "door-target: ...", says why, with the parameter and its value, and the library is closed again.
//
// All of it is compiled into each target library, and stays inside.
#ifndef SORREL_TARGET_LIBRARY_HPP
#define SORREL_TARGET_LIBRARY_HPP

#include <sorrel/component_set.hpp>
#include <sorrel/log_target.hpp>
#include <sorrel/tangle_log.h>
#include <sorrel/target_parameters.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <unistd.h>

namespace sorrel {

// A target that has a name, does not write to syslog, and keeps nothing of components and application names.
class SORREL_LOCAL NamedLogTarget : public ILogTarget {
public:
    explicit NamedLogTarget(const TargetParameters& parameters) : m_name(parameters.targetName()) {}
    NamedLogTarget(const NamedLogTarget&) = delete;
    NamedLogTarget& operator=(const NamedLogTarget&) = delete;
    ~NamedLogTarget() override = default;

    void onComponentAdded(sorrel_component* /*component*/) override {}
    std::string getName() final { return m_name; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string& /*name*/) override {}

protected:
    const std::string& name() const { return m_name; }

private:
    const std::string m_name;
};

// One message, as the library hands it over. Valid during the call, but for the level, which lives as long as the
// process.
struct Message {
    static constexpr long long kSecond = 1000000; // in microseconds

    int processId;
    int depth;         // of traced functions; may be negative
    long long seconds; // since 1970, UTC
    int microseconds;
    const sorrel_level& level;
    const std::string& threadName;
    const std::string& componentName;
    const std::string& functionName; // the innermost traced one, empty when there is none
    const std::string& text;

    // The syslog priority, 0 to 7.
    int priority() const { return level.numeric >= 0 && level.numeric <= 6 ? level.numeric : 7; }

    long long microsecondsSinceEpoch() const { return seconds * kSecond + microseconds; }
};

// A target that writes messages somewhere, and counts what becomes of them. Every such target takes the parameters
//
//     levels=err;warning      what LevelSet takes; all levels when it is not given
//     components=net;ui*      what ComponentSet takes; all components when it is not given
//     conf=FILE               more parameters: see TargetParameters
//
// and writes no other messages. Where one cannot be written, this one and those that follow are lost until a message of
// the target's own, "317 messages lost: No space left on device", gets through: it stands where they would have stood,
// with the depth of the message that follows, the level warning and the target's name for a component. When the target
// is released, a diagnostic at priority 7 says how many were written, dropped (the other side was not ready for more)
// and failed, and one at priority 4 what was lost since the last announcement. A forked child counts from the
// beginning.
class SORREL_LOCAL MessageTarget : public NamedLogTarget {
public:
    explicit MessageTarget(TargetParameters& parameters)
        : NamedLogTarget(parameters), m_levels(parameters.levels("levels")),
          m_components(parameters.components("components")) {
        constexpr std::size_t kLongAnnouncement = 128;
        m_announcement.reserve(kLongAnnouncement);
    }
    MessageTarget(const MessageTarget&) = delete;
    MessageTarget& operator=(const MessageTarget&) = delete;
    ~MessageTarget() override {
        constexpr int kWarningPriority = 4;
        constexpr int kDebugPriority = 7;
        if (isForked()) {
            countAnew();
        }
        if (m_lost != 0) {
            sorrel_tangleLog(kWarningPriority, "%s-target: %s", name().c_str(), announcement().c_str());
        }
        if (m_written + m_dropped + m_failed != 0) {
            sorrel_tangleLog(kDebugPriority, "%s-target: %llu messages written, %llu dropped, %llu failed",
                             name().c_str(), m_written, m_dropped, m_failed);
        }
    }

    // Lets no exception of deliver() pass: the message then counts as failed.
    void log(int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text) final {
        try {
            noticeFork(processId);
            if (m_levels.contains(*level) && m_components.contains(componentName)) {
                count(attempt(
                    {processId, depth, seconds, microseconds, *level, threadName, componentName, functionName, text}));
            }
        } catch (const std::bad_alloc&) {
            count(ENOMEM);
        } catch (const abi::__forced_unwind&) {
            throw; // the end of a cancelled thread
        } catch (...) {
            count(ECANCELED);
        }
    }

protected:
    // Writes one message. Returns 0, or the error number that says why it is lost: EAGAIN and ENOBUFS when the other
    // side takes no more for now, every other one for a failure. Called under the container's mutex, by any thread.
    virtual int deliver(const Message& message) = 0;

    // Called in a forked child before its first message: what the target has not written yet is its parent's to write.
    virtual void forked() {}

    // Whether this is a forked child that has not had a message yet. For destructors.
    bool isForked() const { return getpid() != m_owner; }

    // So many messages, of which deliver() has returned 0, are lost nevertheless: they were kept for later.
    void countLost(std::size_t messages, int error) {
        m_firstError = m_lost == 0 ? error : m_firstError;
        m_lost += messages;
        m_failed += messages;
        m_written -= std::min<unsigned long long>(messages, m_written); // announcements are not among these
    }

private:
    void noticeFork(int processId) {
        if (processId == m_processId) { // which saves nearly all messages the system call
            return;
        }
        m_processId = processId;
        if (isForked()) {
            m_owner = getpid();
            countAnew();
            forked();
        }
    }

    // What was lost before the fork, the parent says.
    void countAnew() { m_written = m_dropped = m_failed = m_lost = 0; }

    int attempt(const Message& message) {
        if (m_lost != 0) {
            const std::string none;
            const int error = deliver({message.processId, message.depth, message.seconds, message.microseconds,
                                       *SR_WARNING, message.threadName, name(), none, announcement()});
            if (error != 0) {
                return error;
            }
            m_lost = 0;
        }
        return deliver(message);
    }

    void count(int error) {
        if (error == 0) {
            ++m_written;
            return;
        }
        if (m_lost++ == 0) {
            m_firstError = error;
        }
        ++(error == EAGAIN || error == ENOBUFS ? m_dropped : m_failed);
    }

    // Takes no memory, which may be what is short.
    const std::string& announcement() {
        m_announcement.assign(std::to_string(m_lost));
        m_announcement += m_lost == 1 ? " message lost: " : " messages lost: ";
        m_announcement += std::strerror(m_firstError);
        return m_announcement;
    }

    const LevelSet m_levels;
    ComponentSet m_components;
    unsigned long long m_written = 0;
    unsigned long long m_dropped = 0;
    unsigned long long m_failed = 0;
    unsigned long long m_lost = 0; // since the last announcement
    int m_firstError = 0;          // of those
    std::string m_announcement;
    pid_t m_owner = getpid(); // whose messages these are
    int m_processId = 0;      // of the last one
};

// Makes targets of one class, whose constructor takes TargetParameters&.
template <typename Target>
class SORREL_LOCAL TargetFactory final : public IClassFactory {
public:
    explicit constexpr TargetFactory(const char* targetName) : m_targetName(targetName) {}

    IDynamicObject* createObject(const std::string& className, IDynamicObjectCreationParams* params) override {
        const auto* const given = dynamic_cast<CLogTargetParameters*>(params);
        if (className != ILogTarget::LOG_TARGET_CLASS_NAME || given == nullptr) {
            return nullptr;
        }
        try {
            TargetParameters parameters(m_targetName, given->params);
            std::unique_ptr<Target> target(new Target(parameters));
            parameters.refuseUnknown();
            return target.release();
        } catch (const std::exception& error) {
            constexpr int kErrorPriority = 3;
            sorrel_tangleLog(kErrorPriority, "%s-target: %s", m_targetName, error.what());
            return nullptr;
        }
    }

    void destroyObject(IDynamicObject* object) override { delete object; }

private:
    const char* const m_targetName;
};

} // namespace sorrel

// In one source of the library, outside all namespaces: its class and the name that goes into diagnostics.
#define SORREL_TARGET_LIBRARY(Target, name)                                                                            \
    extern "C" SORREL_API void dynamic_module_init(void* argument);                                                    \
    extern "C" SORREL_API void dynamic_module_done();                                                                  \
    extern "C" SORREL_API sorrel::IClassFactory* getClassFactory();                                                    \
    void dynamic_module_init(void* /*argument*/) {}                                                                    \
    void dynamic_module_done() {}                                                                                      \
    sorrel::IClassFactory* getClassFactory() {                                                                         \
        static sorrel::TargetFactory<Target> factory(name);                                                            \
        return &factory;                                                                                               \
    }

#endif // SORREL_TARGET_LIBRARY_HPP
