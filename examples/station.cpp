// A program in C++: a weather station with two components, "collect" and "upload", and three threads beside the main
// one, all tracing their functions, until SIGTERM or SIGINT.
#include <sorrel/sorrel.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <string>
#include <thread>

namespace {

using std::chrono::milliseconds;

// Ends the threads: each waits here between two rounds.
class Stop {
public:
    void request() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_requested = true;
        m_changed.notify_all();
    }

    // True once a stop was requested.
    bool waitFor(milliseconds pace) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, pace, [this] { return m_requested; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_requested = false;
};

// Traces the function in which it stands.
class Traced {
public:
    Traced(sorrel_component* component, const char* functionName) : m_component(component) {
        sorrel_enter_function(component, functionName);
    }
    Traced(const Traced&) = delete;
    Traced& operator=(const Traced&) = delete;
    ~Traced() { sorrel_leave_function(m_component); }

private:
    sorrel_component* const m_component;
};

int average(sorrel_component* collect, int first, int second) {
    const Traced traced(collect, "average");
    _sorrel(collect, SR_DEBUG, "of %d and %d", first, second);
    return (first + second) / 2;
}

void measure(sorrel_component* collect, int round) {
    const Traced traced(collect, "measure");
    const int value = average(collect, 18 + round % 5, 20 + round % 3);
    _sorrel(collect, SR_INFO, "%d degrees", value);
}

void collectLoop(sorrel_component* collect, const std::string& threadName, milliseconds pace, Stop& stop) {
    sorrel_init(collect, threadName.c_str());
    for (int round = 0; !stop.waitFor(pace); ++round) {
        measure(collect, round);
    }
    sorrel_done(collect);
}

void uploadLoop(sorrel_component* upload, milliseconds pace, Stop& stop) {
    sorrel_init(upload, "uploader");
    for (int round = 1; !stop.waitFor(pace); ++round) {
        const Traced traced(upload, "send");
        _sorrel(upload, SR_DEBUG, "%d bytes", 100 + round);
        _sorrel(upload, SR_INFO, "report %d sent", round);
    }
    sorrel_done(upload);
}

// Blocks the signals that end the program, for the threads to inherit: also for the one that the library starts at its
// first call.
sigset_t blockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

} // namespace

int main() {
    const sigset_t stopSignals = blockStopSignals();
    const char* const levels = "8=ERR,64=INFO,128=DEBUG,256=TRACE";
    sorrel_component* const collect = sorrel_create_component("collect", SR_INFO, levels);
    sorrel_component* const upload = sorrel_create_component("upload", SR_INFO, levels);
    sorrel_init(collect, "main");

    Stop stop;
    std::thread north(collectLoop, collect, "north", milliseconds(900), std::ref(stop));
    std::thread south(collectLoop, collect, "south", milliseconds(1300), std::ref(stop));
    std::thread uploader(uploadLoop, upload, milliseconds(1700), std::ref(stop));

    int signal = 0;
    sigwait(&stopSignals, &signal);
    _sorrel(collect, SR_INFO, "stopped by signal %d", signal);
    stop.request();
    north.join();
    south.join();
    uploader.join();
    sorrel_done(collect);
}
