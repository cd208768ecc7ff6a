// spdlog's basic file sink for many threads. "buffered" and "always" write the same lines as our file target, but for
// the thread, which is a number here; "buffered-own" and "always-own" have spdlog's own pattern, which it handles best
// and which is shorter.
#include "line_peer.hpp"

#include <memory>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

namespace {

std::shared_ptr<spdlog::logger> logger;

} // namespace

bool linePeer::start(const std::string& way, const std::string& path) {
    logger = std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path));
    const bool isAlways = way == "always" || way == "always-own";
    logger->flush_on(isAlways ? spdlog::level::trace : spdlog::level::err);
    if (way == "always" || way == "buffered") {
        logger->set_pattern("%Y-%m-%d %H:%M:%S.%f %-6l %-8n %-10t %v");
    }
    return isAlways || way == "buffered" || way == "buffered-own";
}

void linePeer::logMessage(const char* word, int number, double fraction) {
    logger->info("{} {} {:f}", word, number, fraction);
}

void linePeer::logError() {
    logger->error("the end");
}
