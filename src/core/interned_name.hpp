// Names of the application that last.
#ifndef SORREL_CORE_INTERNED_NAME_HPP
#define SORREL_CORE_INTERNED_NAME_HPP

#include <string>

namespace sorrel {

// The one copy of a name, made when it is met first and never freed: syslog keeps a pointer to it, and so do callers.
// Any thread may call it.
const std::string& internedName(const std::string& name);

} // namespace sorrel

#endif // SORREL_CORE_INTERNED_NAME_HPP
