// The values of `component` lines, beside the oracle: what the sink is given, and the mask that a logger makes of it.
#include <sorrel/component_cfg_update_sink.hpp>
#include <sorrel/log_target_container.hpp>
#include <sorrel/logger.hpp>

#include "oracle/value_grammars.hpp"
#include "support/difference.hpp"

#include <cstdint>
#include <mutex>

namespace {

class Sink final : public sorrel::IComponentCfgUpdateSink {
public:
    int updateComponentLevel(const std::string& name, const std::string& level) override {
        m_last.emplace(name, level);
        return level.empty() ? -1 : 0; // a failure is only reported
    }

    std::optional<std::pair<std::string, std::string>> takeLast() { return std::exchange(m_last, std::nullopt); }

private:
    std::optional<std::pair<std::string, std::string>> m_last;
};

// Of one component that exists already, in a logger without configuration.
unsigned int maskInLogger(const std::string& digits) {
    static CSorrel& logger = *new CSorrel(false);
    static const sorrel_component& component = *logger.createComponent("c", nullptr, "");
    logger.updateComponentLevel("c", digits);
    return component.mask;
}

} // namespace

// Each line is one value.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Sink& sink = *new Sink;
    static auto& container = *new sorrel::CLogTargetContainer("", false, &sink);
    const std::lock_guard<sorrel::CLogTargetContainer> guard(container);

    std::string rest(reinterpret_cast<const char*>(data), size);
    while (!rest.empty()) {
        const std::string value = rest.substr(0, rest.find('\n'));
        rest.erase(0, value.size() + 1);
        container.OnCallbackCfRead("component", value);
        const auto given = sink.takeLast();
        expectSame("component entry", given, oracle::component(value));
        if (given) {
            expectSame("mask", maskInLogger(given->second), oracle::mask(given->second));
        }
    }
    return 0;
}
