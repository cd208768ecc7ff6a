// A log target that only counts what it receives.
#ifndef SORREL_BENCH_TALLY_TARGET_HPP
#define SORREL_BENCH_TALLY_TARGET_HPP

#include "tally.hpp"

#include <sorrel/log_target.hpp>

namespace sorrel {
class TargetParameters;
}

namespace {

class TallyTarget final : public sorrel::ILogTarget {
public:
    TallyTarget() = default;
    explicit TallyTarget(const sorrel::TargetParameters& /*parameters*/) {}

    void log(int, int, long long, int, sorrel_level*, const std::string&, const std::string&, const std::string&,
             const std::string& text) override {
        sorrelBenchTally.take(text.data(), text.size());
    }
    void onComponentAdded(sorrel_component*) override {}
    std::string getName() override { return "tally"; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string&) override {}
};

} // namespace

#endif // SORREL_BENCH_TALLY_TARGET_HPP
