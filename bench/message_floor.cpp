// In a file of its own, so that the benchmark's loop can neither inline it nor fold it.
#include "message_floor.hpp"

#include <sorrel/component.hpp>
#include <sorrel/level.h>
#include <sorrel/log_target.hpp>

#include <cstdarg>
#include <cstdio>
#include <sys/time.h>
#include <unistd.h>

MessageFloor::MessageFloor(sorrel::ILogTarget& target) : m_target(target) {}

MessageFloor::~MessageFloor() {
    pthread_mutex_destroy(&m_mutex);
}

void MessageFloor::log(sorrel_component* component, sorrel_level* level, const char* format, ...) {
    if ((component->mask & level->mask) == 0) {
        return;
    }
    char text[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    timeval now;
    gettimeofday(&now, nullptr);
    const std::string message(text);
    pthread_mutex_lock(&m_mutex);
    m_target.log(getpid(), 0, now.tv_sec, static_cast<int>(now.tv_usec), level, m_threadName, component->name,
                 m_functionName, message);
    pthread_mutex_unlock(&m_mutex);
}
