// A caller while targets come and go.
#include "../configuration_directory.hpp"
#include "costs.hpp"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <sorrel/component.hpp>
#include <thread>

namespace {

constexpr std::chrono::milliseconds kPeriod(5);

// One target stays. The other comes and goes, and the level of a witness tells that the file has been followed.
class ChangingConfiguration {
public:
    ChangingConfiguration() {
        std::filesystem::copy_file(SORREL_BENCH_NULL_TARGET, m_directory.path() / "other.so");
        write(false);
        m_witness = sorrel_create_component("witness", SR_INFO, "64=INFO");
    }

    void write(bool withOther) const {
        const std::string other = (m_directory.path() / "other.so").string();
        m_directory.write("sorrel.cfg", std::string("target=" SORREL_BENCH_NULL_TARGET "\n") +
                                            (withOther ? "target=" + other + "\n" : "") + "component=witness, 0 " +
                                            (withOther ? "1000" : "0100") + " 0000\n");
    }

    bool follows(bool withOther) const { return sorrel::enabled(m_witness, withOther ? SR_DEBUG : SR_INFO); }

private:
    ConfigurationDirectory m_directory;
    sorrel_component* m_witness;
};

std::vector<double> timeCalls(const std::atomic<bool>& stop) {
    sorrel_component* const component = sorrel_create_component("caller", SR_INFO, "64=INFO");
    std::vector<double> times;
    for (int i = 0; !stop; ++i) {
        const double begin = nanosecondsNow();
        _sorrel(component, SR_INFO, "%s %d %f", "value", i % 1000, 0.25 * (i % 100));
        times.push_back(nanosecondsNow() - begin);
    }
    return times;
}

// The 99.9th percentile of all calls that are made while `meanwhile` runs.
template <class Meanwhile>
double tailOfCalls(const Meanwhile& meanwhile) {
    std::atomic<bool> stop{false};
    std::vector<double> times;
    std::thread caller([&] { times = timeCalls(stop); });
    meanwhile();
    stop = true;
    caller.join();
    std::sort(times.begin(), times.end());
    return quantile(times, 0.999);
}

// Returns how many of the rewritten files were in force when the next one was due.
int changeUntil(const ChangingConfiguration& configuration, std::chrono::steady_clock::time_point end) {
    int followed = 0;
    bool withOther = false;
    for (auto next = std::chrono::steady_clock::now(); next < end; next += kPeriod) {
        withOther = !withOther;
        configuration.write(withOther);
        std::this_thread::sleep_until(next + kPeriod);
        followed += configuration.follows(withOther) ? 1 : 0;
    }
    return followed;
}

} // namespace

void measureReloads(double milliseconds) {
    const ChangingConfiguration configuration;
    const std::chrono::milliseconds duration(static_cast<int>(milliseconds));
    const double quiet = tailOfCalls([duration] { std::this_thread::sleep_for(duration); });
    int followed = 0;
    const double changing =
        tailOfCalls([&] { followed = changeUntil(configuration, std::chrono::steady_clock::now() + duration); });
    printf("{\"quiet\": %.0f, \"changing\": %.0f, \"changes\": %d, \"written\": %d}\n", quiet, changing, followed,
           static_cast<int>(duration / kPeriod));
}
