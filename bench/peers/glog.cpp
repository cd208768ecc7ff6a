// glog with a sink of its own and no log file. The prefix of the line is switched off: the sink has its parts.
#include "peer.hpp"
#include "tally.hpp"

#include <glog/logging.h>
#include <iomanip>

namespace {

class TallySink final : public google::LogSink {
public:
    void send(google::LogSeverity, const char*, const char*, int, const google::LogMessageTime&, const char* text,
              std::size_t length) override {
        sorrelBenchTally.take(text, length);
    }
};

TallySink sink;

} // namespace

const char* const peer::kName = "glog";

void peer::start() {
    FLAGS_log_prefix = false;
    google::InitGoogleLogging("bench");
}

void peer::logMessage(const char* word, int number, double fraction) {
    LOG_TO_SINK_BUT_NOT_TO_LOGFILE(&sink, INFO)
        << word << ' ' << number << ' ' << std::fixed << std::setprecision(6) << fraction;
}

void peer::finish() {}
