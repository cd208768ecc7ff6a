// Operations of a container under its mutex. Shared with src/config.
#ifndef SORREL_CONTAINER_CONTAINER_SCOPE_HPP
#define SORREL_CONTAINER_CONTAINER_SCOPE_HPP

#include <sorrel/log_target_container.hpp>

#include "container/gone.hpp"

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

    // Notes the entry whose target is about to be called: at exit it is not unloaded meanwhile. Whoever comes back from
    // a target has to see whether the container is gone before looking at any target again.
    static void goInto(CLogTargetContainer& container, const CPluggableLogModule* entry) {
        if (container.m_depth > 0 && container.m_depth <= kMaxNesting) {
            __atomic_store_n(&container.m_busy[container.m_depth - 1], entry, __ATOMIC_RELEASE);
        }
    }
    void goInto(const CPluggableLogModule* entry) { goInto(m_container, entry); }

    // Calls each target, in the order of the library paths. Ends early when the container goes while a target is busy.
    template <typename Call>
    void forEachTarget(Call call) {
        for (const auto& entry : m_container.m_targets) {
            if (entry.second.target == nullptr) {
                continue;
            }
            goInto(&entry.second);
            call(*entry.second.target);
            if (isGone(m_container)) {
                return;
            }
        }
        goInto(nullptr);
    }

private:
    bool enter() {
        if (!lockUnlessGone(m_container, m_container)) {
            return false;
        }
        // Sequentially consistent, like the marking of a container as gone: either the destructor sees this operation,
        // or this operation sees that the container is gone.
        __atomic_store_n(&m_container.m_depth, m_container.m_depth + 1, __ATOMIC_SEQ_CST);
        goInto(nullptr);
        if (isGone(m_container)) {
            leave();
            return false;
        }
        return true;
    }

    void leave() {
        goInto(nullptr);
        __atomic_store_n(&m_container.m_depth, m_container.m_depth - 1, __ATOMIC_RELEASE);
        m_container.unlock();
    }

    CLogTargetContainer& m_container;
    const bool m_held;
};

} // namespace sorrel

#endif // SORREL_CONTAINER_CONTAINER_SCOPE_HPP
