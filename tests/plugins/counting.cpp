// Checks numbered messages as they come, and writes only its end into the journal: the tally as text. For storms, whose
// messages would fill the journal.
#include "journal_target.hpp"
#include "storm_messages.hpp"

namespace {

class CountingTarget final : public sorrel::ILogTarget {
public:
    void log(int /*processId*/, int /*depth*/, long long /*seconds*/, int /*microseconds*/, sorrel_level* /*level*/,
             const std::string& threadName, const std::string& /*componentName*/, const std::string& /*functionName*/,
             const std::string& text) override {
        m_tally.add(threadName, text);
    }

    void onComponentAdded(sorrel_component* /*component*/) override {}
    std::string getName() override { return SORREL_TEST_PLUGIN_NAME; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string& /*name*/) override {}

    std::string report() const { return m_tally.report(); }

private:
    storm::Tally m_tally;
};

class CountingFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& /*className*/,
                                         sorrel::IDynamicObjectCreationParams* /*params*/) override {
        return new CountingTarget;
    }

    void destroyObject(sorrel::IDynamicObject* object) override {
        PluginEvent end = newEvent("destroy");
        end.text = dynamic_cast<CountingTarget&>(*object).report();
        journal::add(end);
        delete object;
    }
};

CountingFactory factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    return &factory;
}
