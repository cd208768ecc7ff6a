// What the test plug-ins of a process saw, in one order, and the means to do something at that moment.
#ifndef SORREL_TESTS_PLUGIN_JOURNAL_HPP
#define SORREL_TESTS_PLUGIN_JOURNAL_HPP

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

struct sorrel_level;
struct sorrel_component;

// One call into a plug-in. Besides the first three, a field is set only by the kinds named beside it.
struct PluginEvent {
    std::string library;    // "recording", or "recording:x" for a target whose line has the parameter tag=x
    std::string kind;       // init, done, factory, create, destroy, log, component, getName, isSyslog, appname
    std::thread::id thread; // the calling thread
    int processId = 0;      // log, as are the next five
    int depth = 0;
    long long seconds = 0;
    int microseconds = 0;
    sorrel_level* level = nullptr;
    std::string threadName;
    std::string componentName;                   // log, component
    std::string functionName;                    // log
    std::string text;                            // log; appname: the name; create: the class; init: "null" or "set"
    const sorrel_component* component = nullptr; // component
    std::map<std::string, std::string> params;   // create
};

// Thread-safe; never destroyed, so that plug-ins may write into it until the process is gone.
namespace journal {

using Predicate = std::function<bool(const PluginEvent&)>;
using Hook = std::function<void(const PluginEvent&)>;

// Writes an event down and then calls the hook of its kind, without holding a lock. Fills in the thread.
void add(PluginEvent event);

std::vector<PluginEvent> events();
std::vector<PluginEvent> ofKind(const std::string& kind);

// The texts of all messages that targets received.
std::vector<std::string> texts();

// Each event as "LIBRARY KIND", with " TEXT" where there is one: "recording log hello".
std::vector<std::string> lines();

// Waits until an event is there, earlier or still to come; false when the time is over.
bool waitFor(const Predicate& predicate, std::chrono::milliseconds timeout = std::chrono::seconds(10));

// Forgets the events; hooks stay.
void clear();

// The hook runs inside each operation of that kind, on its thread, after the event was written down; what it throws,
// the plug-in throws. It may log, create components, fork. One hook a kind; null takes it away. A hook that refers to
// variables of a test must be taken away before they are gone: targets are still called while the process exits.
void onEvent(const std::string& kind, Hook hook);

// From now on each event is also written to the descriptor, as its line and a line feed: for a parent that wants to
// know what happened in a child, up to its end.
void echoTo(int fd);

} // namespace journal

#endif // SORREL_TESTS_PLUGIN_JOURNAL_HPP
