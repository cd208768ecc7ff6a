// Stands in for openlog(3) and syslog(3): nothing leaves the process, and the last message is kept.
#include "support/recorded_syslog.hpp"

#include <cstdarg>
#include <cstdio>
#include <syslog.h>

namespace {

char lastMessage[2048];

} // namespace

extern "C" void openlog(const char*, int, int) {}

extern "C" void syslog(int, const char* format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(lastMessage, sizeof lastMessage, format, args);
    va_end(args);
}

std::string takeSyslog() {
    std::string message = lastMessage;
    lastMessage[0] = '\0';
    return message;
}
