// What a message cannot be cheaper than: the straight line of everything that has to happen, without the library.
#ifndef SORREL_BENCH_MESSAGE_FLOOR_HPP
#define SORREL_BENCH_MESSAGE_FLOOR_HPP

#include <pthread.h>
#include <string>

struct sorrel_component;
struct sorrel_level;

namespace sorrel {
class ILogTarget;
}

// The level test, a formatting into 2048 bytes, the time of day, the process, a string of the text, a recursive lock
// and one virtual call.
class MessageFloor {
public:
    explicit MessageFloor(sorrel::ILogTarget& target);
    MessageFloor(const MessageFloor&) = delete;
    MessageFloor& operator=(const MessageFloor&) = delete;
    ~MessageFloor();

    void log(sorrel_component* component, sorrel_level* level, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

private:
    sorrel::ILogTarget& m_target;
    pthread_mutex_t m_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    const std::string m_threadName = "<no name>";
    const std::string m_functionName;
};

#endif // SORREL_BENCH_MESSAGE_FLOOR_HPP
