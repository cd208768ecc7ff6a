// spdlog, synchronous, for many threads. The sink takes the text as the logger has formatted it; no pattern is applied.
#include "peer.hpp"
#include "tally.hpp"

#include <memory>
#include <mutex>
#include <spdlog/fmt/bin_to_hex.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

namespace {

class TallySink final : public spdlog::sinks::base_sink<std::mutex> {
protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        sorrelBenchTally.take(message.payload.data(), message.payload.size());
    }
    void flush_() override {}
};

std::shared_ptr<spdlog::logger> logger;

} // namespace

const char* const peer::kName = "spdlog";

void peer::start() {
    logger = std::make_shared<spdlog::logger>("bench", std::make_shared<TallySink>());
}

void peer::logMessage(const char* word, int number, double fraction) {
    logger->info("{} {} {:f}", word, number, fraction);
}

void peer::logDump(const unsigned char* data, unsigned int size, bool withCharacters) {
    constexpr std::size_t kBytesPerLine = 16;
    if (withCharacters) {
        logger->info("{:a}", spdlog::to_hex(data, data + size, kBytesPerLine));
    } else {
        logger->info("{}", spdlog::to_hex(data, data + size));
    }
}

void peer::finish() {}
