// A log target whose virtual tables are written by hand, slot by slot: what it writes down shows which slot the library
// called. Each call is one line in the file that the parameter `file` names; without that parameter nothing is written
// and nothing allocated. It says that it writes to syslog.
#include <sorrel/component.hpp>
#include <sorrel/level.h>
#include <sorrel/log_target.hpp>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <typeinfo>
#include <unistd.h>

extern "C" SORREL_API sorrel::IClassFactory* getClassFactory();

namespace {

using Table = const void* const*;

// What the library takes for an ILogTarget: the pointer to the table comes first.
struct RawTarget {
    Table table;
    int output; // -1: write nothing
};

struct RawFactory {
    Table table;
};

__attribute__((format(printf, 2, 3))) void write(const RawTarget* target, const char* format, ...) {
    if (target->output != -1) {
        va_list args;
        va_start(args, format);
        vdprintf(target->output, format, args);
        va_end(args);
    }
}

[[noreturn]] void slotThatIsNeverCalled(void*) {
    std::abort();
}

void log(RawTarget* target, int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
         const std::string& threadName, const std::string& componentName, const std::string& functionName,
         const std::string& text) {
    write(target, "log %d %d %lld %d %p [%s] [%s] [%s] [%s]\n", processId, depth, seconds, microseconds,
          static_cast<void*>(level), threadName.c_str(), componentName.c_str(), functionName.c_str(), text.c_str());
}

void onComponentAdded(RawTarget* target, sorrel_component* component) {
    write(target, "component %s\n", component->name.c_str());
}

std::string getName(RawTarget* target) {
    write(target, "getName\n");
    return "raw";
}

bool isSyslogTarget(RawTarget* target) {
    write(target, "isSyslogTarget\n");
    return true;
}

void setAppname(RawTarget* target, const std::string& name) {
    write(target, "appname %s\n", name.c_str());
}

template <class Function>
const void* entry(Function* function) {
    return reinterpret_cast<const void*>(function);
}

// Before slot 0 stand the offset to the whole object and its type, which dynamic_cast looks at.
const void* const targetTable[] = {
    nullptr,
    &typeid(sorrel::ILogTarget),
    entry(slotThatIsNeverCalled), // only the factory destroys targets
    entry(slotThatIsNeverCalled),
    entry(log),
    entry(onComponentAdded),
    entry(getName),
    entry(isSyslogTarget),
    entry(setAppname),
};

sorrel::IDynamicObject* createObject(RawFactory*, const std::string& className,
                                     sorrel::IDynamicObjectCreationParams* params) {
    const auto& values = static_cast<sorrel::CLogTargetParameters*>(params)->params;
    const auto file = values.find("file");
    int output = -1;
    if (file != values.end()) {
        output = open(file->second.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    }
    auto* const target = new RawTarget{targetTable + 2, output};
    write(target, "create %s\n", className.c_str());
    return reinterpret_cast<sorrel::IDynamicObject*>(target);
}

void destroyObject(RawFactory*, sorrel::IDynamicObject* object) {
    auto* const target = reinterpret_cast<RawTarget*>(object);
    write(target, "destroy\n");
    if (target->output != -1) {
        close(target->output);
    }
    delete target;
}

const void* const factoryTable[] = {
    nullptr,
    &typeid(sorrel::IClassFactory),
    entry(createObject),
    entry(destroyObject),
};

RawFactory factory{factoryTable + 2};

} // namespace

sorrel::IClassFactory* getClassFactory() {
    return reinterpret_cast<sorrel::IClassFactory*>(&factory);
}
