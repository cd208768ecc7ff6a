// Which printf directives have a meaning that is written down, and so a result that can be foretold.
#ifndef SORREL_FUZZ_DIRECTIVES_HPP
#define SORREL_FUZZ_DIRECTIVES_HPP

#include <string>

namespace oracle {

// Whether the C standard, or glibc's own additions to it, say what each directive of the text prints. Positions and
// numbers of more than three digits are left aside.
bool isWellFormed(const std::string& text);

// Whether the text may be changed though it takes no argument: for a position, a modifier of newer C libraries, a width
// without its conversion, a very large number.
bool isSpecial(const std::string& text);

} // namespace oracle

#endif // SORREL_FUZZ_DIRECTIVES_HPP
