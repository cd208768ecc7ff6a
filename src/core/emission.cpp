// The road of a message from its caller to the container.
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>
#include <sorrel/tangle_log.h>

#include "container/gone.hpp"
#include "core/message_path.hpp"
#include "core/second_pass.hpp"
#include "core/thread_record.hpp"

#include <cstdio>
#include <cstring>
#include <sys/time.h>
#include <unistd.h>

static_assert(sizeof(time_t) == 8, "seconds must stay right after 2038");

namespace {

constexpr std::size_t kTextSize = 2048; // longer texts are cut

// Deliberate: one buffer for the whole process, without a lock.
char sorSyslogBuffer[kTextSize];

void copyText(char (&to)[kTextSize], const char (&from)[kTextSize]) {
    std::memcpy(to, from, kTextSize);
    to[kTextSize - 1] = '\0'; // another thread may be writing over the end
}

} // namespace

void CSorrel::log(sorrel_component* component, sorrel_level* level, const char* format, va_list args) {
    if (!sorrel::messagePasses(component, level)) {
        return;
    }
    char text[kTextSize];
    text[0] = '\0'; // vsnprintf may fail before it writes anything
    vsnprintf(text, sizeof text, format, args);
    timeval now;
    gettimeofday(&now, nullptr);
    const int processId = getpid();
    const thread_data_t& thread = sorrel::threadRecord();
    const int depth = thread.depth;
    const std::string function = thread.functionStack.empty() ? std::string() : thread.functionStack.front();
    const std::string message(text);
    m_container.log(processId, depth, now.tv_sec, static_cast<int>(now.tv_usec), level, thread.threadName,
                    component->name, function, message);
}

void CSorrel::sorSyslog(sorrel_component* component, sorrel_level* level, const char* format, va_list args) {
    if (isGone(m_container)) {
        return;
    }
    sorSyslogBuffer[0] = '\0';
    vsnprintf(sorSyslogBuffer, sizeof sorSyslogBuffer, format, args);
    char text[kTextSize]; // from here on nobody else can change it
    copyText(text, sorSyslogBuffer);
    if (!m_container.hasSyslogTarget()) {
        sorrel::sorrel_tangleLog(level_to_prio(level), "%s", text);
    }
    char secondFormat[sorrel::kSecondPassSize];
    sorrel::makeArgumentless(text, secondFormat);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    // Deliberate: the text is the format of a second formatting.
    _sorrel(component, level, secondFormat);
#pragma GCC diagnostic pop
}

int CSorrel::level_to_prio(sorrel_level* level) {
    if (level == nullptr || static_cast<unsigned int>(level->numeric) >= 7) {
        return 7;
    }
    return level->numeric;
}
