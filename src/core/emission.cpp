// The road of a message from its caller to the container.
#include <sorrel/logger.hpp>
#include <sorrel/sorrel.h>
#include <sorrel/tangle_log.h>

#include "container/gone.hpp"
#include "core/plain_format.hpp"
#include "core/process_id.hpp"
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

// The length of the text, which ends at its first zero character.
__attribute__((format(printf, 2, 0))) std::size_t formatText(char (&text)[kTextSize], const char* format,
                                                             va_list args) {
#ifdef SORREL_FAST_PATH
    const std::size_t length = sorrel::formatPlainly(text, kTextSize, format, args);
    if (length != sorrel::kNotPlain) {
        return length;
    }
#endif
    text[0] = '\0'; // vsnprintf may fail before it writes anything
    vsnprintf(text, kTextSize, format, args);
    return std::strlen(text);
}

int currentProcessId() {
#ifdef SORREL_FAST_PATH
    return sorrel::keptProcessId();
#else
    return getpid();
#endif
}

void copyText(char (&to)[kTextSize], const char (&from)[kTextSize]) {
    std::memcpy(to, from, kTextSize);
    to[kTextSize - 1] = '\0'; // another thread may be writing over the end
}

} // namespace

void CSorrel::log(sorrel_component* component, sorrel_level* level, const char* format, va_list args) {
    if (!sorrel::enabled(component, level)) {
        return;
    }
    char text[kTextSize];
    const std::size_t length = formatText(text, format, args);
    timeval now;
    gettimeofday(&now, nullptr);
    const int processId = currentProcessId();
    sorrel::ThreadRecord& thread = sorrel::threadRecord();
    const int depth = thread.data.depth;
    sorrel::MessageInProgress message(thread);
    sorrel::MessageStrings& strings = message.strings();
    if (thread.data.functionStack.empty()) {
        strings.function.clear();
    } else {
        strings.function = thread.data.functionStack.front();
    }
    strings.text.assign(text, length);
    m_container.log(processId, depth, now.tv_sec, static_cast<int>(now.tv_usec), level, thread.data.threadName,
                    component->name, strings.function, strings.text);
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
