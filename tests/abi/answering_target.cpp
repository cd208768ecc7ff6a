// A log target that answers each message with another one of the same text, and allocates nothing.
#include <sorrel/component.hpp>
#include <sorrel/log_target.hpp>
#include <sorrel/sorrel.h>

extern "C" SORREL_API sorrel::IClassFactory* getClassFactory();

namespace {

class AnsweringTarget final : public sorrel::ILogTarget {
public:
    void log(int, int, long long, int, sorrel_level* level, const std::string&, const std::string&, const std::string&,
             const std::string& text) override {
        if (!m_answering) {
            m_answering = true;
            _sorrel(m_component, level, "%s", text.c_str());
            m_answering = false;
        }
    }
    void onComponentAdded(sorrel_component* component) override { m_component = component; }
    std::string getName() override { return "answering"; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string&) override {}

private:
    sorrel_component* m_component = nullptr; // the latest
    bool m_answering = false;
};

class Factory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string&, sorrel::IDynamicObjectCreationParams*) override {
        return new AnsweringTarget;
    }
    void destroyObject(sorrel::IDynamicObject* object) override { delete object; }
};

Factory factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    return &factory;
}
