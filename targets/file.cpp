// Log target that appends each message as a line to a file: `target=sorrel-file.so, file=/var/log/app.log`. Without a
// file that can be opened there is no target; the diagnostic channel says why.
#include "log_line.hpp"

#include <sorrel/log_target.hpp>
#include <sorrel/tangle_log.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <syslog.h>
#include <unistd.h>

namespace {

class FileTarget final : public sorrel::ILogTarget {
public:
    // Takes over the descriptor.
    explicit FileTarget(int fd) : m_fd(fd) {}
    FileTarget(const FileTarget&) = delete;
    FileTarget& operator=(const FileTarget&) = delete;
    ~FileTarget() override { close(m_fd); }

    void log(int /*processId*/, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text) override {
        log_line::write(m_fd,
                        log_line::date(seconds) + log_line::format(depth, seconds, microseconds, *level, threadName,
                                                                   componentName, functionName, text));
    }

    void onComponentAdded(sorrel_component* /*component*/) override {}
    std::string getName() override { return "file"; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string& /*name*/) override {}

private:
    const int m_fd;
};

class Factory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        const auto* given = dynamic_cast<sorrel::CLogTargetParameters*>(params);
        if (className != sorrel::ILogTarget::LOG_TARGET_CLASS_NAME || given == nullptr) {
            return nullptr;
        }
        const auto file = given->params.find("file");
        if (file == given->params.end()) {
            sorrel::sorrel_tangleLog(LOG_ERR, "file-target: the parameter \"file\" is missing");
            return nullptr;
        }
        const int fd = open(file->second.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
        if (fd < 0) {
            sorrel::sorrel_tangleLog(LOG_ERR, "file-target: unable to open \"%s\" - errno=%s", file->second.c_str(),
                                     std::strerror(errno));
            return nullptr;
        }
        return new FileTarget(fd);
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
