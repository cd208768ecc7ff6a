// Thousands of exits of processes that log, in every way: none crashes, none hangs.
#include "exit_storm.hpp"

namespace {

thread_local LastWords lastWordsOfThread;

// Ends as main returns, after the test.
using ExitStormProgram = ExitStorm;

} // namespace

TEST_F(ExitStorm, StaticDestructorsThatUseEverythingAfterTheLogger) {
    expectExits([](int) {
        build();
        lastWords.speak = useEverything;
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, HandlersFromBeforeTheLogger) {
    expectExits([](int) {
        std::atexit(useEverything);
        build();
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, HandlersFromAfterTheLogger) {
    expectExits([](int) {
        build();
        std::atexit(logInEveryWay);
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, ThreadLocalsOfTheExitingThread) {
    expectExits([](int) {
        lastWordsOfThread.speak = logInEveryWay; // made before the thread's record, and destroyed after it
        build();
        logInEveryWay();
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, ThreadLocalsOfThreadsThatEndMeanwhile) {
    expectExits([](int) {
        build();
        startThreads([] {
            std::thread([] {
                lastWordsOfThread.speak = logInEveryWay;
                logInEveryWay();
            }).join();
        });
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, TargetsThatLogWhileTheyAreReleased) {
    configure(target("recording") + target("static_object") + target("logs_everywhere"));
    expectExits([](int) {
        build();
        lastWords.speak = useEverything;
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, ThreadsThatLog) {
    expectExits([](int) {
        build();
        startLoggers();
        lastWords.speak = useEverything;
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, ThreadsThatCreateComponents) {
    expectExits([](int) {
        build();
        startThreads([] {
            static std::atomic<int> created{0};
            sorrel_create_component(("component " + std::to_string(++created)).c_str(), SR_INFO, "64=INFO");
            componentNames();
        });
        lastWords.speak = useEverything;
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, ThreadInsideATargetForEver) {
    expectExits([](int) {
        build();
        holdIn("log");
        std::thread([] { say("stuck"); }).detach();
        waitUntilHeld();
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, RereadThatEndsMeanwhile) {
    expectExits([](int) {
        static std::atomic<bool> isExiting{false};
        build();
        journal::onEvent("component", [](const PluginEvent&) {
            isHeld = true;
            waitUntil([] { return isExiting.load(); });
        });
        overwriteConfiguration(1);
        waitUntilHeld();
        std::atexit([] { isExiting = true; }); // runs before the logger ends
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, RereadInsideATargetForEver) {
    expectExits([](int) {
        build();
        holdIn("component");
        overwriteConfiguration(1);
        waitUntilHeld();
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, LoggerThatIsBuiltForEver) {
    if (kThreadSanitized) {
        GTEST_SKIP() << "for the sanitizer the lock of the builder stays locked in a forked child";
    }
    expectExits([](int) {
        prepareToBuild();
        holdIn("create");
        for (int k = 0; k < 3; ++k) {
            std::thread([] { say("storm"); }).detach();
        }
        waitUntilHeld();
        lastWords.speak = useEverything;
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, LoggerThatIsBuiltMeanwhile) {
    if (kThreadSanitized) {
        GTEST_SKIP() << "for the sanitizer the lock of the builder stays locked in a forked child";
    }
    expectExits([](int i) {
        prepareToBuild();
        for (int k = 0; k < 3; ++k) {
            std::thread([] { say("storm"); }).detach();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(10 * i));
        lastWords.speak = logInEveryWay; // before the logger's end, perhaps, or before its beginning
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, ConfigurationThatIsRewritten) {
    expectExits([](int) {
        static std::atomic<int> rereads{0};
        build();
        journal::onEvent("isSyslog", [](const PluginEvent&) { ++rereads; });
        std::thread([] {
            for (unsigned int state = 0;; ++state) {
                overwriteConfiguration(state);
            }
        }).detach();
        waitUntil([] { return rereads > 3; });
        std::exit(kChildPassed);
    });
}

TEST_F(ExitStorm, FromInsideATarget) {
    expectExits([](int) {
        build();
        startLoggers();
        exitIn("log");
        for (;;) {
            say("the last one");
        }
    });
}

TEST_F(ExitStorm, FromInsideATargetOnAnotherThread) {
    expectExits([](int) {
        build();
        exitIn("log");
        std::thread([] { say("the last one"); }).join();
    });
}

TEST_F(ExitStorm, FromInsideATargetOnTheWorker) {
    expectExits([](int) {
        build();
        exitIn("component");
        overwriteConfiguration(1);
        for (;;) {
            pause();
        }
    });
}

TEST_F(ExitStorm, FromInsideATargetWhileAComponentIsCreated) {
    expectExits([](int) {
        build();
        startLoggers();
        exitIn("component");
        sorrel_create_component("the last one", SR_INFO, "");
    });
}

TEST_F(ExitStorm, ForkedChildren) {
    if (!kChildrenMayAllocate) {
        GTEST_SKIP() << "the sanitizer's allocator is not ready for it";
    }
    expectExits([](int) {
        build();
        startLoggers();
        const pid_t child = startChild([] {
            say("from the child");
            lastWords.speak = useEverything;
            std::exit(kChildPassed);
            return false;
        });
        std::exit(endOfChild(child));
    });
}

TEST_F(ExitStorm, QuickExits) {
    expectExits([](int i) {
        build();
        startLoggers();
        if (i % 2 == 0) {
            std::quick_exit(kChildPassed);
        }
        _exit(kChildPassed);
    });
}

TEST_F(ExitStorm, ReturnsFromMain) {
    expectExits([](int) {
        const pid_t child = startChild([] {
            dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
            execl("/proc/self/exe", "program", "--gtest_filter=ExitStormProgram.LogsUntilMainReturns", nullptr);
            return false;
        });
        _exit(endOfChild(child) == 0 ? kChildPassed : 1);
    });
}

TEST_F(ExitStormProgram, LogsUntilMainReturns) {
    build();
    startLoggers();
    lastWords.speak = useEverything;
}
