/* A program in C: one thread that reports what a door does, until SIGTERM or SIGINT. */
#include <sorrel/sorrel.h>

#include <signal.h>
#include <stddef.h>
#include <time.h>

static void check_lock(sorrel_component* door, unsigned int visit) {
    const unsigned char state[] = {0x5a, (unsigned char)visit, 0x00, 0x7f};

    sorrel_enter_function(door, "check_lock");
    sorrel_dump(door, SR_DEBUG, state, sizeof state);
    sorrel_leave_function(door);
}

int main(void) {
    const struct timespec pace = {1, 100 * 1000 * 1000};
    sigset_t stopSignals;
    unsigned int visit = 0;

    /* Before the library's first call, which starts a thread of its own. */
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    sigprocmask(SIG_BLOCK, &stopSignals, NULL);

    sorrel_component* const door = sorrel_create_component("door", SR_INFO, "16=WARN,64=INFO,128=DEBUG,256=TRACE");
    sorrel_init(door, "main");
    while (sigtimedwait(&stopSignals, NULL, &pace) < 0) {
        ++visit;
        check_lock(door, visit);
        _sorrel(door, SR_INFO, "visitor %u came in", visit);
        if (visit % 4 == 0) {
            _sorrel(door, SR_WARN, "left open");
        }
    }
    _sorrel(door, SR_INFO, "closed for today");
    sorrel_done(door);
    return 0;
}
