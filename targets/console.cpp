// Log target that writes each message as a line to the terminal: `target=sorrel-console.so, stream=stderr`. The stream
// is stdout unless the line says stderr.
#include "log_line.hpp"

#include <sorrel/log_target.hpp>

#include <string>
#include <unistd.h>

namespace {

class ConsoleTarget final : public sorrel::ILogTarget {
public:
    explicit ConsoleTarget(int fd) : m_fd(fd) {}

    void log(int /*processId*/, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text) override {
        log_line::write(m_fd, log_line::format(depth, seconds, microseconds, *level, threadName, componentName,
                                               functionName, text));
    }

    void onComponentAdded(sorrel_component* /*component*/) override {}
    std::string getName() override { return "console"; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string& /*name*/) override {}

private:
    const int m_fd; // belongs to the process
};

class Factory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        const auto* given = dynamic_cast<sorrel::CLogTargetParameters*>(params);
        if (className != sorrel::ILogTarget::LOG_TARGET_CLASS_NAME || given == nullptr) {
            return nullptr;
        }
        const auto stream = given->params.find("stream");
        const bool toStderr = stream != given->params.end() && stream->second == "stderr";
        return new ConsoleTarget(toStderr ? STDERR_FILENO : STDOUT_FILENO);
    }

    void destroyObject(sorrel::IDynamicObject* object) override { delete object; }
};

Factory factory;

} // namespace

extern "C" {

SORREL_API void dynamic_module_init(void* /*argument*/) {}

SORREL_API void dynamic_module_done() {}

SORREL_API sorrel::IClassFactory* getClassFactory() {
    return &factory;
}
}
