// For authors of log targets: a class in, a target library out. <sorrel/log_target.hpp> is the contract itself. C++17.
//
//     namespace {
//
//     class DoorTarget final : public sorrel::NamedLogTarget {
//     public:
//         explicit DoorTarget(sorrel::TargetParameters& parameters)
//             : NamedLogTarget(parameters), m_bell(parameters.text("bell")),
//               m_rings(parameters.number("rings", 1, 1, 10)) {}
//
//         void log(int processId, int depth, ...) override;
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

#include <sorrel/log_target.hpp>
#include <sorrel/tangle_log.h>

#include <charconv>
#include <exception>
#include <initializer_list>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#ifndef SORREL_LOCAL
#define SORREL_LOCAL __attribute__((visibility("hidden"))) /* not part of the exported interface */
#endif

namespace sorrel {

// The parameters of one `target` line, as the constructor of a target reads them. What it asks for is allowed; after it
// everything else is refused. Every reader throws TargetParameters::Error for a value that it does not take.
class SORREL_LOCAL TargetParameters {
public:
    class SORREL_LOCAL Error : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // Both have to outlive this object.
    TargetParameters(const char* targetName, const std::map<std::string, std::string>& given)
        : m_targetName(targetName), m_given(given), m_asked{TARGET_TOKEN_APPLICATION_NAME()} {}
    TargetParameters(const TargetParameters&) = delete;
    TargetParameters& operator=(const TargetParameters&) = delete;

    // As SORREL_TARGET_LIBRARY says.
    const char* targetName() const { return m_targetName; }

    // The application's name, empty when none is set; or what the line gives as "application-name".
    std::string applicationName() const {
        const auto found = m_given.find(TARGET_TOKEN_APPLICATION_NAME());
        return found != m_given.end() ? found->second : std::string();
    }

    // A text that has to be there.
    std::string text(const std::string& name) {
        const std::string* const value = find(name);
        return value != nullptr ? *value : throw Error("the parameter \"" + name + "\" is missing");
    }

    std::string text(const std::string& name, const std::string& otherwise) {
        const std::string* const value = find(name);
        return value != nullptr ? *value : otherwise;
    }

    // A whole number, in decimal digits, perhaps behind a minus sign, from `least` to `most`.
    template <typename Number>
    Number number(const std::string& name, Number otherwise, Number least, Number most) {
        const std::string* const value = find(name);
        if (value == nullptr) {
            return otherwise;
        }
        Number number = 0;
        const char* const end = value->data() + value->size();
        const std::from_chars_result result = std::from_chars(value->data(), end, number);
        if (result.ec != std::errc() || result.ptr != end || number < least || number > most) {
            refuse(name, *value, "is not a number from " + std::to_string(least) + " to " + std::to_string(most));
        }
        return number;
    }

    // One of several words.
    template <typename Choice>
    Choice choice(const std::string& name, Choice otherwise,
                  std::initializer_list<std::pair<const char*, Choice>> choices) {
        const std::string* const value = find(name);
        if (value == nullptr) {
            return otherwise;
        }
        std::string words;
        for (const auto& one : choices) {
            if (*value == one.first) {
                return one.second;
            }
            words += std::string(words.empty() ? "" : ", ") + one.first;
        }
        refuse(name, *value, "is none of " + words);
    }

    // Throws when a parameter was given that nobody has asked for.
    void refuseUnknown() const {
        for (const auto& parameter : m_given) {
            if (m_asked.count(parameter.first) == 0) {
                refuse(parameter.first, parameter.second, "is given to a parameter that does not exist");
            }
        }
    }

private:
    const std::string* find(const std::string& name) {
        m_asked.insert(name);
        const auto found = m_given.find(name);
        return found != m_given.end() ? &found->second : nullptr;
    }

    [[noreturn]] static void refuse(const std::string& name, const std::string& value, const std::string& why) {
        throw Error("parameter \"" + name + "\": \"" + value + "\" " + why);
    }

    const char* const m_targetName;
    const std::map<std::string, std::string>& m_given;
    std::set<std::string> m_asked;
};

// A target that has a name, does not write to syslog, and keeps nothing of components and application names.
class SORREL_LOCAL NamedLogTarget : public ILogTarget {
public:
    explicit NamedLogTarget(const TargetParameters& parameters) : m_name(parameters.targetName()) {}
    NamedLogTarget(const NamedLogTarget&) = delete;
    NamedLogTarget& operator=(const NamedLogTarget&) = delete;
    ~NamedLogTarget() override = default;

    void onComponentAdded(sorrel_component* /*component*/) override {}
    std::string getName() override { return m_name; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string& /*name*/) override {}

private:
    const char* const m_name;
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
