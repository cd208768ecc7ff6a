// Two threads that brew, the first of which then waits to be killed. Their trace is what scripts/trace-picture shows.
#include <sorrel/sorrel.h>

#include <chrono>
#include <thread>

namespace {

using std::chrono::milliseconds;

sorrel_component* const brewery = sorrel_create_component("brewery", SR_INFO, "64=INFO,256=TRACE");

// A function that is traced as long as this exists.
class Traced {
public:
    explicit Traced(const char* functionName) { sorrel_enter_function(brewery, functionName); }
    Traced(const Traced&) = delete;
    Traced& operator=(const Traced&) = delete;
    ~Traced() { sorrel_leave_function(brewery); }
};

void work(const char* functionName, int duration) {
    const Traced traced(functionName);
    std::this_thread::sleep_for(milliseconds(duration));
}

void heat(int degrees) {
    const Traced traced("heat");
    _sorrel(brewery, SR_INFO, "%d degrees", degrees);
    work("open_valve", 3);
    work("wait", degrees / 4);
    work("close_valve", 3);
}

void brew(const char* threadName) {
    sorrel_init(brewery, threadName);
    for (int round = 0; round < 4; ++round) {
        const Traced traced("brew");
        work("mill", 12);
        {
            const Traced mashing("mash");
            for (const int degrees : {50, 62, 72}) {
                heat(degrees);
            }
            work("stir", 8);
        }
        work("filter", 10 + 5 * round);
        heat(100);
        _sorrel(brewery, SR_WARNING, "round %d is over", round);
    }
}

} // namespace

int main() {
    sorrel_set_applicationname("brewery");
    std::thread steel(brew, "steel");
    brew("copper");
    steel.join();
    const Traced traced("wait_to_be_killed");
    std::this_thread::sleep_for(std::chrono::hours(1));
}
