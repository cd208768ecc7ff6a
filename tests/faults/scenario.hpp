// What the two scenarios share: their place, their steps, and the looks at what is left.
#ifndef SORREL_TESTS_FAULTS_SCENARIO_HPP
#define SORREL_TESTS_FAULTS_SCENARIO_HPP

#include "failing_calls.hpp"
#include "proc_self.hpp"
#include "temp_dir.hpp"

#include <map>
#include <set>
#include <string>

// What a process has and must give back.
struct Footprint {
    std::map<int, std::string> descriptors;
    std::set<int> threads;
    long blocks = 0; // of memory
};

Footprint footprint();

// Reports something that must not be, and makes the scenario fail.
void problem(const std::string& what);
bool hasProblems();

// A step that may throw what the library may throw when a call has failed, which is reported. Whether it did not.
template <class Function>
bool step(const char* name, Function function);

// Waits until the worker, if there is one, has dealt with all that was waiting for it. `before`: what the process had
// before there was a worker.
void settle(const Footprint& before);

// Whether calls of this process fail in the kernel, and not here.
bool isTraced();

// Something that is wrong on purpose, once, to see that it is noticed; the name was given to the program.
bool makesMistake(const char* name);

// The descriptors and threads, and the memory if that is wanted, are those of before.
void expectNothingLeft(const Footprint& before, long allowedBlocks);

// The scenarios. Each begins and ends the counting of calls.
void runContainerScenario(const TempDir& files);
void runLoggerScenario(const TempDir& files);

void reportException(const char* step);

// Asks the kernel for a file of this name, for those who trace the calls of the process.
void markForTracers(const char* name);

template <class Function>
bool step(const char* name, Function function) {
    markForTracers("step begins");
    bool succeeded = true;
    try {
        function();
    } catch (...) {
        reportException(name);
        succeeded = false;
    }
    markForTracers("step ends");
    return succeeded;
}

#endif // SORREL_TESTS_FAULTS_SCENARIO_HPP
