// Boost.Log: a synchronous sink, whose backend takes the text of the record. The time is the one attribute.
#include "peer.hpp"
#include "tally.hpp"

#include <boost/log/attributes/clock.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/trivial.hpp>
#include <boost/smart_ptr/make_shared.hpp>
#include <iomanip>

namespace {

namespace logging = boost::log;

class TallyBackend final : public logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding> {
public:
    void consume(const logging::record_view& record) {
        const logging::value_ref<std::string, logging::expressions::tag::smessage> text =
            record[logging::expressions::smessage];
        if (!text.empty()) {
            sorrelBenchTally.take(text->data(), text->size());
        }
    }
};

logging::sources::severity_logger_mt<logging::trivial::severity_level>& logger() {
    static logging::sources::severity_logger_mt<logging::trivial::severity_level> instance;
    return instance;
}

} // namespace

const char* const peer::kName = "Boost.Log";

void peer::start() {
    using Sink = logging::sinks::synchronous_sink<TallyBackend>;
    logging::core::get()->add_global_attribute("TimeStamp", logging::attributes::utc_clock());
    logging::core::get()->set_filter(logging::trivial::severity >= logging::trivial::info);
    logging::core::get()->add_sink(boost::make_shared<Sink>());
}

void peer::logMessage(const char* word, int number, double fraction) {
    BOOST_LOG_SEV(logger(), logging::trivial::info)
        << word << ' ' << number << ' ' << std::fixed << std::setprecision(6) << fraction;
}

void peer::finish() {}
