// What the library keeps of the calling thread, at any time of the thread's life.
#ifndef SORREL_CORE_THREAD_RECORD_HPP
#define SORREL_CORE_THREAD_RECORD_HPP

#include <sorrel/logger.hpp>

#include <memory>
#include <string>

namespace sorrel {

// The strings of one message. They keep their memory for the next message.
struct MessageStrings {
    std::string function;
    std::string text;
    std::unique_ptr<MessageStrings> inner; // for a message that a target logs while it has these
};

struct ThreadRecord {
    explicit ThreadRecord(CSorrel::thread_data_t& record) : data(record) {}

    // CSorrel::thread_data; once that was destroyed (destructors of other thread-locals run later, and on the main
    // thread those of static objects too) a fresh record, which is never freed.
    CSorrel::thread_data_t& data;

    MessageStrings outermost;
    MessageStrings* inUse = nullptr; // those of the innermost message that is on its way, or null
};

// Null until the thread is first seen. No dynamic initialisation and the static model: it is reached without a call.
extern __thread ThreadRecord* knownThreadRecord __attribute__((tls_model("initial-exec")));

ThreadRecord& makeThreadRecord();

inline ThreadRecord& threadRecord() {
    return knownThreadRecord != nullptr ? *knownThreadRecord : makeThreadRecord();
}

MessageStrings& makeInnerStrings(MessageStrings& outer);

// A message on its way, and its strings.
class MessageInProgress {
public:
    explicit MessageInProgress(ThreadRecord& thread)
        : m_thread(thread), m_outer(thread.inUse), m_strings(stringsWithin(m_outer)) {
        thread.inUse = &m_strings;
    }
    MessageInProgress(const MessageInProgress&) = delete;
    MessageInProgress& operator=(const MessageInProgress&) = delete;
    ~MessageInProgress() { m_thread.inUse = m_outer; }

    MessageStrings& strings() { return m_strings; }

private:
    MessageStrings& stringsWithin(MessageStrings* outer) {
        if (outer == nullptr) {
            return m_thread.outermost;
        }
        return outer->inner != nullptr ? *outer->inner : makeInnerStrings(*outer);
    }

    ThreadRecord& m_thread;
    MessageStrings* const m_outer;
    MessageStrings& m_strings;
};

} // namespace sorrel

#endif // SORREL_CORE_THREAD_RECORD_HPP
