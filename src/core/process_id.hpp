// The process id without a system call for each message.
#ifndef SORREL_CORE_PROCESS_ID_HPP
#define SORREL_CORE_PROCESS_ID_HPP

namespace sorrel {

// What getpid() says, also right after a fork, or a raw clone with memory of its own.
int keptProcessId();

} // namespace sorrel

#endif // SORREL_CORE_PROCESS_ID_HPP
