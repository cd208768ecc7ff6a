// A log target that does nothing: what remains is the library's own cost.
#ifndef SORREL_BENCH_NULL_TARGET_HPP
#define SORREL_BENCH_NULL_TARGET_HPP

#include <sorrel/log_target.hpp>

namespace sorrel {
class TargetParameters;
}

namespace {

class NullTarget final : public sorrel::ILogTarget {
public:
    NullTarget() = default;
    explicit NullTarget(const sorrel::TargetParameters& /*parameters*/) {}

    void log(int, int, long long, int, sorrel_level*, const std::string&, const std::string&, const std::string&,
             const std::string&) override {}
    void onComponentAdded(sorrel_component*) override {}
    std::string getName() override { return "null"; }
    bool isSyslogTarget() override { return false; }
    void setAppname(const std::string&) override {}
};

} // namespace

#endif // SORREL_BENCH_NULL_TARGET_HPP
