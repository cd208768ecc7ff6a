// The calling thread's record, at any time of the thread's life.
#ifndef SORREL_CORE_THREAD_RECORD_HPP
#define SORREL_CORE_THREAD_RECORD_HPP

#include <sorrel/logger.hpp>

namespace sorrel {

// CSorrel::thread_data; once that was destroyed (destructors of other thread-locals run later, and on the main thread
// those of static objects too) a fresh record, which is never freed.
CSorrel::thread_data_t& threadRecord();

} // namespace sorrel

#endif // SORREL_CORE_THREAD_RECORD_HPP
