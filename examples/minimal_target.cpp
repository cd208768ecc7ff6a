// A complete log target: writes to standard error, each line with its priority in front, as systemd's journal reads it.
// `target=/path/to/minimal.so, tag=door` adds a tag.
#include <sorrel/log_target.hpp>

#include <cstdio>
#include <string>

namespace {

class MinimalTarget final : public sorrel::ILogTarget {
public:
    explicit MinimalTarget(const std::string& tag) : m_tag(tag) {}

    void log(int /*processId*/, int /*depth*/, long long /*seconds*/, int /*microseconds*/, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& /*functionName*/,
             const std::string& text) override {
        std::fprintf(stderr, "<%d>%s %s/%s: %s\n", sorrel_level_to_prio(level), m_tag.c_str(), componentName.c_str(),
                     threadName.c_str(), text.c_str());
    }
    void onComponentAdded(sorrel_component* /*component*/) override {}
    std::string getName() override { return "minimal"; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string& /*name*/) override {}

private:
    const std::string m_tag;
};

class Factory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        if (className != sorrel::ILogTarget::LOG_TARGET_CLASS_NAME) {
            return nullptr;
        }
        return new MinimalTarget(static_cast<sorrel::CLogTargetParameters&>(*params).params["tag"]);
    }
    void destroyObject(sorrel::IDynamicObject* object) override { delete object; }
};

Factory factory; // belongs to this library, which hands out the same one each time

} // namespace

extern "C" SORREL_API sorrel::IClassFactory* getClassFactory() {
    return &factory;
}
