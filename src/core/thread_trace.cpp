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

__thread sorrel::ThreadRecord* sorrel::knownThreadRecord = nullptr;

namespace {

__thread bool isOver = false; // has no destructor, so it can be used to the very end of the thread

// Made after the exported record, with it, and so destroyed just before it.
struct EndingRecord : sorrel::ThreadRecord {
    EndingRecord() : ThreadRecord(CSorrel::thread_data) {}
    EndingRecord(const EndingRecord&) = delete;
    EndingRecord& operator=(const EndingRecord&) = delete;
    ~EndingRecord() {
        isOver = true;
        sorrel::knownThreadRecord = nullptr;
    }
};
thread_local EndingRecord endingRecord;

} // namespace

sorrel::ThreadRecord& sorrel::makeThreadRecord() {
    if (isOver) {
        knownThreadRecord = new ThreadRecord(*new CSorrel::thread_data_t); // never freed
    } else {
        knownThreadRecord = &endingRecord;
    }
    return *knownThreadRecord;
}

sorrel::MessageStrings& sorrel::makeInnerStrings(MessageStrings& outer) {
    outer.inner = std::make_unique<MessageStrings>();
    return *outer.inner;
}

void CSorrel::init(sorrel_component* component, const char* threadName, bool announce) {
    if (!legacyInitialised.load(std::memory_order_relaxed)) {
        legacyInitialised.store(true, std::memory_order_relaxed);
        sorrel::sorrel_tangleLogInit();
    }
    sorrel::threadRecord().data.threadName = threadName;
    if (component != nullptr && announce) {
        _sorrel(component, SR_ENTERLEAVE, "----- Thread %s started.", threadName);
    }
}

void CSorrel::done(sorrel_component* component) {
    thread_data_t& thread = sorrel::threadRecord().data;
    _sorrel(component, SR_ENTERLEAVE, "----- Thread %s ending.", thread.threadName.c_str());
    thread.threadName = "<thrd done>";
}

void CSorrel::enterFunction(sorrel_component* component, const char* functionName) {
    thread_data_t& thread = sorrel::threadRecord().data;
    thread.functionStack.emplace_front(functionName);
    _sorrel(component, SR_ENTERLEAVE, "entering");
    ++thread.depth;
}

// Deliberate: the depth goes down even when no function was entered, and may become negative.
void CSorrel::leaveFunction(sorrel_component* component) {
    thread_data_t& thread = sorrel::threadRecord().data;
    --thread.depth;
    _sorrel(component, SR_ENTERLEAVE, "leaving");
    if (!thread.functionStack.empty()) {
        thread.functionStack.pop_front();
    }
}
