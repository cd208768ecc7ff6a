// Builds a container for the directory /given and writes down whether the kernel started this program with raised
// rights ("secure" or "plain"), and which configuration file the container takes for its own. Exits without further
// ado, since a program with raised rights is no place for the reports of tools.
#include <sorrel/log_target_container.hpp>

#include <cstdio>
#include <sys/auxv.h>
#include <unistd.h>

int main() {
    const sorrel::CLogTargetContainer container("/given", true, nullptr);
    std::printf("%s %s\n", getauxval(AT_SECURE) != 0 ? "secure" : "plain", container.getDefaultCfgFilename().c_str());
    std::fflush(stdout);
    _exit(0);
}
