// Operations of a container under its mutex. Shared with src/config.
#ifndef SORREL_CONTAINER_CONTAINER_SCOPE_HPP
#define SORREL_CONTAINER_CONTAINER_SCOPE_HPP

#include <sorrel/log_target_container.hpp>

#include "container/gone.hpp"

#include <exception>

namespace sorrel {

// Holds the mutex, through the virtual lock() and unlock(), for one operation, and lets the container know of it. Not
// held when the container is gone: then nothing may be done.
class CLogTargetContainer::Scope {
public:
    explicit Scope(CLogTargetContainer& container) : m_container(container), m_held(enter()) {}
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() {
        if (m_held) {
            leave();
        }
    }

    explicit operator bool() const { return m_held; }

    // Whether no other operation is on this thread's stack.
    bool isOutermost() const { return m_container.m_depth == 1; }

    // Around each call into a target. False when the container is gone: then no target may be looked at any more. The
    // exiting thread looks at the notes a good while after it has marked the container, and leaves a target alone that
    // was noted before.
    [[nodiscard]] static bool enterTarget(CLogTargetContainer& container, const CPluggableLogModule& entry) {
        goInto(container, &entry);
        return !isGone(container);
    }
    [[nodiscard]] static bool leaveTarget(CLogTargetContainer& container) {
        goInto(container, nullptr);
        return !isGone(container);
    }

    // Calls each target, in the order of the library paths. Ends early when the container goes while a target is busy.
    template <typename Call>
    void forEachTarget(Call call) {
        for (const auto& entry : m_container.m_targets) {
            if (entry.second.target == nullptr) {
                continue;
            }
            if (!enterTarget(m_container, entry.second)) {
                return;
            }
            call(*entry.second.target);
            if (!leaveTarget(m_container)) {
                return;
            }
        }
    }

private:
    // Notes the entry whose target is being called, if any: at exit it is not unloaded meanwhile.
    static void goInto(CLogTargetContainer& container, const CPluggableLogModule* entry) {
        if (container.m_depth > 0 && container.m_depth <= kMaxNesting) {
            __atomic_store_n(&container.m_busy[container.m_depth - 1], entry, __ATOMIC_RELEASE);
        }
    }

    bool enter() {
        if (!lockUnlessGone(m_container, m_container)) {
            return false;
        }
        // What the exiting thread reads of this without the mutex it has from a good while ago.
        __atomic_store_n(&m_container.m_depth, m_container.m_depth + 1, __ATOMIC_RELEASE);
        if (isGone(m_container)) {
            leave();
            return false;
        }
        return true;
    }

    void leave() {
        goInto(m_container, nullptr);
        __atomic_store_n(&m_container.m_depth, m_container.m_depth - 1, __ATOMIC_RELEASE);
        m_container.unlock();
    }

    CLogTargetContainer& m_container;
    const bool m_held;
};

// For walks in which a target that throws is not to keep the later ones waiting: the first exception is kept until the
// walk is over, and those that follow it are dropped.
class CLogTargetContainer::FirstException {
public:
    // Does what may throw.
    template <typename Step>
    void keepFrom(Step step) {
        try {
            step();
        } catch (...) {
            const std::exception_ptr thrown = std::current_exception();
            if (thrown == nullptr) {
                throw; // none of C++, which cannot be kept: the thread is cancelled, or leaves by pthread_exit
            }
            if (m_first == nullptr) {
                m_first = thrown;
            }
        }
    }

    void rethrow() const {
        if (m_first != nullptr) {
            std::rethrow_exception(m_first);
        }
    }

private:
    std::exception_ptr m_first;
};

} // namespace sorrel

#endif // SORREL_CONTAINER_CONTAINER_SCOPE_HPP
