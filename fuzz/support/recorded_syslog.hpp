// Stands in for openlog(3) and syslog(3): nothing leaves the process, and the last message is kept.
#ifndef SORREL_FUZZ_RECORDED_SYSLOG_HPP
#define SORREL_FUZZ_RECORDED_SYSLOG_HPP

#include <string>

// The last message since the previous call, or an empty text.
std::string takeSyslog();

#endif // SORREL_FUZZ_RECORDED_SYSLOG_HPP
