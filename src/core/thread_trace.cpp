// What the logger knows of each thread: its name, and the functions that it has entered.
#include "core/thread_record.hpp"

#include <sorrel/sorrel.h>
#include <sorrel/tangle_log.h>

#include <atomic>

namespace {

// Tested and set without synchronisation, as it always was: two first calls at the same time may both initialise.
std::atomic<bool> legacyInitialised{false};

} // namespace

thread_local CSorrel::thread_data_t CSorrel::thread_data;

namespace {

// These two have no destructor, so they can be used to the very end of the thread.
thread_local bool recordIsGone = false;
thread_local CSorrel::thread_data_t* lateRecord = nullptr;

// Made after the record, with it, and so destroyed just before it.
struct RecordEnd {
    RecordEnd() = default;
    RecordEnd(const RecordEnd&) = delete;
    RecordEnd& operator=(const RecordEnd&) = delete;
    ~RecordEnd() { recordIsGone = true; }
    void use() {} // a thread-local that is never used is never made
};
thread_local RecordEnd recordEnd;

} // namespace

CSorrel::thread_data_t& sorrel::threadRecord() {
    if (recordIsGone) {
        if (lateRecord == nullptr) {
            lateRecord = new CSorrel::thread_data_t;
        }
        return *lateRecord;
    }
    recordEnd.use();
    return CSorrel::thread_data;
}

void CSorrel::init(sorrel_component* component, const char* threadName, bool announce) {
    if (!legacyInitialised.load(std::memory_order_relaxed)) {
        legacyInitialised.store(true, std::memory_order_relaxed);
        sorrel::sorrel_tangleLogInit();
    }
    sorrel::threadRecord().threadName = threadName;
    if (component != nullptr && announce) {
        _sorrel(component, SR_ENTERLEAVE, "----- Thread %s started.", threadName);
    }
}

void CSorrel::done(sorrel_component* component) {
    thread_data_t& thread = sorrel::threadRecord();
    _sorrel(component, SR_ENTERLEAVE, "----- Thread %s ending.", thread.threadName.c_str());
    thread.threadName = "<thrd done>";
}

void CSorrel::enterFunction(sorrel_component* component, const char* functionName) {
    thread_data_t& thread = sorrel::threadRecord();
    thread.functionStack.emplace_front(functionName);
    _sorrel(component, SR_ENTERLEAVE, "entering");
    ++thread.depth;
}

// Deliberate: the depth goes down even when no function was entered, and may become negative.
void CSorrel::leaveFunction(sorrel_component* component) {
    thread_data_t& thread = sorrel::threadRecord();
    --thread.depth;
    _sorrel(component, SR_ENTERLEAVE, "leaving");
    if (!thread.functionStack.empty()) {
        thread.functionStack.pop_front();
    }
}
