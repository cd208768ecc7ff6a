// What the test plug-ins of a process saw.
#include "plugin_journal.hpp"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <unistd.h>

namespace {

struct Journal {
    std::mutex mutex; // guards all that follows
    std::condition_variable changed;
    std::vector<PluginEvent> events;
    std::map<std::string, journal::Hook> hooks;
    int echoFd = -1;
};

Journal& theJournal() {
    static Journal& journal = *new Journal;
    return journal;
}

std::string lineOf(const PluginEvent& event) {
    return event.library + " " + event.kind + (event.text.empty() ? "" : " " + event.text);
}

void echo(int fd, const PluginEvent& event) {
    const std::string line = lineOf(event) + "\n";
    if (write(fd, line.data(), line.size()) == -1) {
        _exit(EXIT_FAILURE); // the parent is gone
    }
}

} // namespace

void journal::add(PluginEvent event) {
    event.thread = std::this_thread::get_id();
    Journal& book = theJournal();
    Hook hook;
    {
        const std::lock_guard<std::mutex> lock(book.mutex);
        book.events.push_back(event);
        if (book.echoFd != -1) {
            echo(book.echoFd, event);
        }
        const auto found = book.hooks.find(event.kind);
        if (found != book.hooks.end()) {
            hook = found->second;
        }
    }
    book.changed.notify_all();
    if (hook) {
        hook(event);
    }
}

std::vector<PluginEvent> journal::events() {
    Journal& book = theJournal();
    const std::lock_guard<std::mutex> lock(book.mutex);
    return book.events;
}

std::vector<PluginEvent> journal::ofKind(const std::string& kind) {
    std::vector<PluginEvent> found;
    for (PluginEvent& event : events()) {
        if (event.kind == kind) {
            found.push_back(std::move(event));
        }
    }
    return found;
}

std::vector<std::string> journal::texts() {
    std::vector<std::string> found;
    for (PluginEvent& event : ofKind("log")) {
        found.push_back(std::move(event.text));
    }
    return found;
}

std::vector<std::string> journal::lines() {
    std::vector<std::string> found;
    for (const PluginEvent& event : events()) {
        found.push_back(lineOf(event));
    }
    return found;
}

bool journal::waitFor(const Predicate& predicate, std::chrono::milliseconds timeout) {
    Journal& book = theJournal();
    std::unique_lock<std::mutex> lock(book.mutex);
    return book.changed.wait_for(lock, timeout,
                                 [&] { return std::any_of(book.events.begin(), book.events.end(), predicate); });
}

void journal::clear() {
    Journal& book = theJournal();
    const std::lock_guard<std::mutex> lock(book.mutex);
    book.events.clear();
}

void journal::onEvent(const std::string& kind, Hook hook) {
    Journal& book = theJournal();
    const std::lock_guard<std::mutex> lock(book.mutex);
    book.hooks[kind] = std::move(hook);
}

void journal::echoTo(int fd) {
    Journal& book = theJournal();
    const std::lock_guard<std::mutex> lock(book.mutex);
    book.echoFd = fd;
}
