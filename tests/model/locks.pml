/* The locks of the library and who takes them in which order, for spin. One process a thread. A thread that waits for
 * ever is a deadlock, which spin reports as an invalid end state.
 *
 *   CONTAINER   the container's recursive mutex: every message, re-read, and call into a target
 *   COMPONENTS  the recursive lock of the registry of components
 *   SLOTS       the mutexes of the two loggers' slots, as one: held while a logger is built and while the process forks
 *   LEAF        the innermost lock: names, levels, the index of components
 *
 * A re-read holds CONTAINER and needs COMPONENTS at each `component` entry; so do targets that use the registry. A
 * creation needs COMPONENTS and, to tell the targets, CONTAINER. With -DCOMPONENTS_FIRST creations take them in this
 * order: the negative control, which has to deadlock.
 */
#define ROUNDS 2

#define CONTAINER 0
#define COMPONENTS 1
#define SLOTS 2
#define LEAF 3

byte owner[4]; /* the process that holds the lock, 0 when nobody does: process 0 is init, which takes none */
byte depth[4]; /* how often it holds it */

#define isFree(lock) (owner[lock] == 0 || owner[lock] == _pid)
#define take(lock) owner[lock] = _pid; depth[lock]++

inline acquire(lock) {
    atomic { isFree(lock) -> take(lock) }
}

inline release(lock) {
    atomic {
        assert(owner[lock] == _pid);
        depth[lock]--;
        if
        :: depth[lock] == 0 -> owner[lock] = 0
        :: else
        fi
    }
}

inline use(lock) {
    acquire(lock);
    release(lock)
}

/* CSorrel::enterRegistry: COMPONENTS is taken if it is free at once. Otherwise the level of CONTAINER that was taken
 * here is given back before COMPONENTS is waited for. */
inline enterRegistry() {
#ifdef COMPONENTS_FIRST
    acquire(COMPONENTS)
#else
    do
    :: acquire(CONTAINER);
       if
       :: atomic { isFree(COMPONENTS) -> take(COMPONENTS) }; break
       :: else -> release(CONTAINER); use(COMPONENTS)
       fi
    od
#endif
}

inline leaveRegistry() {
    release(COMPONENTS);
#ifndef COMPONENTS_FIRST
    release(CONTAINER)
#endif
}

/* createComponent: into the index, then the targets are told. */
inline createComponent() {
    enterRegistry();
    use(LEAF);
    use(CONTAINER);
    leaveRegistry()
}

/* updateComponentLevel, of a component that does not exist yet. */
inline updateLevel() {
    enterRegistry();
    createComponent();
    leaveRegistry()
}

/* onCfgUpdate: a file with one `component` entry. */
inline reread() {
    acquire(CONTAINER);
    updateLevel();
    release(CONTAINER)
}

/* setAppname: stores the name and re-reads. */
inline nameApplication() {
    acquire(CONTAINER);
    use(LEAF);
    reread();
    release(CONTAINER)
}

/* beforeFork: all is taken, or nothing is held while the one that is busy is waited for. In the middle, where the
 * process forks, no other thread holds any of them. afterForkInParent: all is given back. */
inline forkProcess() {
    do
    :: acquire(SLOTS);
       if
       :: atomic { isFree(CONTAINER) -> take(CONTAINER) };
          if
          :: atomic { isFree(COMPONENTS) -> take(COMPONENTS) };
             if
             :: atomic { isFree(LEAF) -> take(LEAF) }; break
             :: else -> release(COMPONENTS); release(CONTAINER); release(SLOTS); use(LEAF)
             fi
          :: else -> release(CONTAINER); release(SLOTS); use(COMPONENTS)
          fi
       :: else -> release(SLOTS); use(CONTAINER)
       fi
    od;
    assert(owner[SLOTS] == _pid && owner[CONTAINER] == _pid && owner[COMPONENTS] == _pid && owner[LEAF] == _pid);
    release(LEAF);
    release(COMPONENTS);
    release(CONTAINER);
    release(SLOTS)
}

#define REPEAT(operation) \
    byte round; \
    for (round : 1 .. ROUNDS) { operation }

/* The thread that watches the configuration file. */
proctype worker() {
    REPEAT(reread())
}

proctype namer() {
    REPEAT(nameApplication())
}

proctype creator() {
    REPEAT(if
           :: createComponent()
           :: updateLevel()
           :: use(COMPONENTS) /* setComponentLevel, getComponentNames, getLevelDescriptions */
           fi)
}

/* Logs to a target that calls the library from inside its log(). */
proctype loggerWithCallBacks() {
    REPEAT(acquire(CONTAINER);
           if
           :: use(COMPONENTS)
           :: updateLevel()
           :: forkProcess()
           fi;
           release(CONTAINER))
}

proctype plainLogger() {
    REPEAT(use(CONTAINER))
}

proctype forker() {
    REPEAT(forkProcess())
}

/* Builds the plain logger while the configured one works. */
proctype builder() {
    acquire(SLOTS);
    use(LEAF);
    release(SLOTS)
}

/* An application that logs and creates while it holds lockComponents(). Nobody may re-read or call back meanwhile: that
 * waits for COMPONENTS while it holds CONTAINER, and the library cannot put the caller of an exported lock in order. */
proctype holder() {
    REPEAT(acquire(COMPONENTS);
           if
           :: use(CONTAINER)
           :: createComponent()
           :: forkProcess()
           fi;
           release(COMPONENTS))
}

init {
    atomic {
        if
        :: run worker(); run namer(); run creator(); run loggerWithCallBacks(); run forker(); run builder()
        :: run holder(); run creator(); run creator(); run plainLogger(); run forker(); run builder()
        fi
    }
}
