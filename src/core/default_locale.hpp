// The default locale, in processes that fork.
#ifndef SORREL_CORE_DEFAULT_LOCALE_HPP
#define SORREL_CORE_DEFAULT_LOCALE_HPP

#include <locale>

namespace sorrel {

// A copy of the global locale. In a forked child it is the parent's at the fork: another thread of the parent may have
// held the C++ library's lock for it then, and the child would wait for that for ever.
std::locale defaultLocale();

// For fork's handlers: the first before the fork, by one thread at a time, the second in the child.
void keepLocaleForChild();
void takeParentsLocale();

} // namespace sorrel

#endif // SORREL_CORE_DEFAULT_LOCALE_HPP
