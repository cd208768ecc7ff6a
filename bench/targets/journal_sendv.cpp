// sd_journal_sendv, with the fields of this library's journal target. Those that never change are made once.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include "../peer.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/time.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMostText = 2048;

std::array<std::string, 8> constant;

iovec part(char* data, int length) {
    return {data, static_cast<std::size_t>(length)};
}

} // namespace

const char* const peer::kName = "sd_journal_sendv";

void peer::start() {
    constant = {"PRIORITY=6",
                "SYSLOG_IDENTIFIER=sorrel_bench_journal",
                "SYSLOG_PID=" + std::to_string(getpid()),
                "TID=" + std::to_string(gettid()),
                "SORREL_COMPONENT=bench",
                "SORREL_DEPTH=0",
                "SORREL_THREAD=<no name>",
                "SORREL_LEVEL_MASK=0x40"};
}

void peer::logMessage(const char* word, int number, double fraction) {
    std::array<iovec, constant.size() + 2> parts;
    std::size_t count = 0;
    char message[kMostText];
    parts[count++] = part(message, snprintf(message, sizeof message, "MESSAGE=%s %d %f", word, number, fraction));
    timeval now;
    gettimeofday(&now, nullptr);
    char time[64];
    const long long microseconds = now.tv_sec * 1000000LL + now.tv_usec;
    parts[count++] = part(time, snprintf(time, sizeof time, "SORREL_TIMESTAMP=%lld", microseconds));
    for (std::string& field : constant) {
        parts[count++] = {field.data(), field.size()};
    }
    if (sd_journal_sendv(parts.data(), static_cast<int>(count)) != 0) {
        std::exit(EXIT_FAILURE);
    }
}
