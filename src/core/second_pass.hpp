// Text that is formatted a second time, without arguments.
#ifndef SORREL_CORE_SECOND_PASS_HPP
#define SORREL_CORE_SECOND_PASS_HPP

#include <cstddef>

namespace sorrel {

// Room for what becomes of a text of 2047 characters. More than fits does not matter: the second formatting cuts it.
constexpr std::size_t kSecondPassSize = 4096;

// Turns a formatted text into a format that takes no arguments. A directive that would take one is replaced by what it
// makes of 0, 0.0 or an empty string, %n by nothing; where an argument would be taken by its position, or for something
// unknown, the percent sign is doubled. Everything else stays as it is, %% and %m above all, which are interpreted
// again; only a width of %m is cut to what a message holds.
void makeArgumentless(const char* text, char (&out)[kSecondPassSize]);

} // namespace sorrel

#endif // SORREL_CORE_SECOND_PASS_HPP
