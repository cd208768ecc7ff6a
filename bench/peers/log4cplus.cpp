// log4cplus with an appender of its own, through the macro that takes a format of printf.
#include "peer.hpp"
#include "tally.hpp"

#include <log4cplus/appender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/spi/loggingevent.h>

namespace {

class TallyAppender final : public log4cplus::Appender {
public:
    ~TallyAppender() override { destructorImpl(); }
    void close() override {}

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        const log4cplus::tstring& text = event.getMessage();
        sorrelBenchTally.take(text.data(), text.size());
    }
};

log4cplus::Logger logger;

} // namespace

const char* const peer::kName = "log4cplus";

void peer::start() {
    static const log4cplus::Initializer initializer;
    logger = log4cplus::Logger::getInstance("bench");
    logger.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    logger.setAdditivity(false);
    logger.addAppender(log4cplus::SharedAppenderPtr(new TallyAppender));
}

void peer::logMessage(const char* word, int number, double fraction) {
    LOG4CPLUS_INFO_FMT(logger, "%s %d %f", word, number, fraction);
}

void peer::finish() {}
