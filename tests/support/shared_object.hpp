// An object that a process shares with its children.
#ifndef SORREL_TESTS_SHARED_OBJECT_HPP
#define SORREL_TESTS_SHARED_OBJECT_HPP

#include <cerrno>
#include <new>
#include <sys/mman.h>
#include <system_error>
#include <type_traits>

// Make it before the children. It is never destroyed, only unmapped.
template <typename T>
class SharedObject {
    static_assert(std::is_trivially_destructible_v<T>);

public:
    SharedObject() {
        void* const memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        m_object = new (memory) T{};
    }
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;
    ~SharedObject() { munmap(m_object, sizeof *m_object); }

    T& operator*() { return *m_object; }
    T* operator->() { return m_object; }

private:
    T* m_object = nullptr;
};

#endif // SORREL_TESTS_SHARED_OBJECT_HPP
