// Says that it writes to syslog.
#include "journal_target.hpp"

namespace {

class SyslogTarget : public JournalTarget {
public:
    using JournalTarget::JournalTarget;

    bool isSyslogTarget() override {
        JournalTarget::isSyslogTarget();
        return true;
    }
};

JournalFactory<SyslogTarget> factory;

} // namespace

sorrel::IClassFactory* getClassFactory() {
    journal::add(newEvent("factory"));
    return &factory;
}
