// What the library says when something has failed. {errno} stands for the text of the error, {number} for its number,
// {file} for a file of the configuration, {plugin} for the library of the target.
#ifndef SORREL_TESTS_EXPECTED_MESSAGES_HPP
#define SORREL_TESTS_EXPECTED_MESSAGES_HPP

#include "plugin_path.hpp"

#include <algorithm>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

using Strings = std::vector<std::string>;

namespace messages {

inline constexpr char kNoWorker[] =
    "logtarget-container: unable to initialize event-handling - not worker thread will be spawned";
inline constexpr char kNoThread[] =
    "logtarget-container: unable to create worker thread: exception caught: {errno} - errno={errno}";
inline constexpr char kNoThreadObject[] =
    "logtarget-container: unable to create worker thread - config-changes will not be monitored. (errno={errno})";
inline constexpr char kNoThreadResource[] = "logtarget-container: unable to create worker thread: exception caught: "
                                            "Resource temporarily unavailable - errno={errno}";
inline constexpr char kNoPipe[] = "logtarget-container: invalid pipe-fd (notify)";
inline constexpr char kNotTold[] = "logtarget-container: unable to notify thread about a changed appname";
inline constexpr char kNotWritten[] = "logtarget-container: unable to write to pipe (notify) - errno={errno}";
inline constexpr char kForcedEnd[] =
    "logtarget-container: unable to terminate worker thread - forcing exit. (errno={errno})";
inline constexpr char kNoMove[] =
    "logtarget-container: Unable to watch application-specific config-file \"player\" for "
    "changes - errno={errno}";
inline constexpr char kNotRemoved[] = "logtarget-container: Unable remove old inotify watch - errno={errno}";
inline constexpr char kNoWait[] = "logtarget-container: epoll failed with errno={errno} - terminating watcher thread.";
inline constexpr char kNoEvent[] = "logtarget-container: unable to read inotify event - dropped event.";
inline constexpr char kNoNotification[] =
    "logtarget-container: worker unable to receive notification - terminating thread.";
inline constexpr char kNotOpened[] = "cfread: unable to open {file}";
inline constexpr char kGivenUp[] = "unable to read sorrel-config \"{file}\" - giving up.";
inline constexpr char kNoLibrary[] = "Unable to open shared library \"{plugin}\" - error={errno}";
inline constexpr char kNotLoaded[] =
    "logtarget-container: Unable to load the logtarget-library \"{plugin}\" - errno={number}({errno})";
inline constexpr char kNoSymbol[] = "Symbol \"getClassFactory\" not found in shared library \"{plugin}\"";
inline constexpr char kNoFactory[] = "logtarget-container: Unable to retrieve the classfactory from lib \"{plugin}\"";
inline constexpr char kNotClosed[] = "dlclose() failed, rc=-1, dlerror=<null>, errno={errno} (lib={plugin})";

} // namespace messages

inline bool contains(const Strings& strings, const std::string& string) {
    return std::find(strings.begin(), strings.end(), string) != strings.end();
}

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// A message of the library with the stand-ins above in it. The plug-in's path has no "{errno}" in it.
inline std::string general(const std::string& message, int error) {
    const std::string text = replaced(message, pluginPath("recording"), "{plugin}");
    const std::string number = "errno=" + std::to_string(error) + "(";
    const std::string words = replaced(replaced(text, std::strerror(error), "{errno}"), number, "errno={number}(");
    return std::regex_replace(words, std::regex("/[^ \"]*/sorrel(-[a-z]+)?[.]cfg"), "{file}");
}

#endif // SORREL_TESTS_EXPECTED_MESSAGES_HPP
