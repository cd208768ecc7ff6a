// What the dynamic loader may answer, with fakes in its place.
#include "container_fixture.hpp"

#include <sorrel/dynamic_module.hpp>

#include <gmock/gmock.h>

#include <cerrno>
#include <dlfcn.h>

using sorrel::CDynamicModule;
using testing::ElementsAre;

namespace {

std::string watchedPath; // the fakes concern themselves with this library only
int openErrno = 0;       // not 0: opening fails with this errno
int openFlags = -1;
void* watchedHandle = nullptr;
int closeResult = 0;              // not 0: closing fails with this, errno set to EBUSY
const char* closeError = nullptr; // then also an error of the loader about this path
int closes = 0;

template <class Function>
Function* realFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

class DynamicModuleFailures : public ContainerFixture {
protected:
    DynamicModuleFailures() { watchedPath = pluginPath("recording"); }

    // The message of a module whose library could not be closed.
    SyslogRecord closingMessage() {
        {
            CDynamicModule module(watchedPath);
            EXPECT_EQ(module.load(nullptr), 0);
        }
        EXPECT_EQ(closes, 1);
        return diagnostics().records().back();
    }
};

} // namespace

extern "C" void* fakeOpen(const char* path, int flags) __asm__("dlopen");
extern "C" void* fakeOpen(const char* path, int flags) {
    static auto* const real = realFunction<void*(const char*, int)>("dlopen");
    if (path == nullptr || path != watchedPath) {
        return real(path, flags);
    }
    openFlags = flags;
    watchedHandle = openErrno == 0 ? real(path, flags) : nullptr;
    errno = openErrno;
    return watchedHandle;
}

extern "C" int fakeClose(void* handle) __asm__("dlclose");
extern "C" int fakeClose(void* handle) {
    static auto* const real = realFunction<int(void*)>("dlclose");
    if (handle != watchedHandle) {
        return real(handle);
    }
    ++closes;
    if (closeResult == 0) {
        return real(handle);
    }
    dlerror();
    if (closeError != nullptr) {
        dlopen(closeError, RTLD_LAZY);
    }
    errno = EBUSY;
    return closeResult;
}

TEST_F(DynamicModuleFailures, ALibraryIsOpenedLazilyAndForAll) {
    CDynamicModule module(watchedPath);
    ASSERT_EQ(module.load(nullptr), 0);
    EXPECT_EQ(openFlags, RTLD_LAZY | RTLD_GLOBAL);
}

TEST_F(DynamicModuleFailures, KeepsTheTextOfErrnoInTheMessageOfALibraryThatCannotBeOpened) {
    openErrno = ENOMEM;
    CDynamicModule module(watchedPath);
    EXPECT_EQ(module.load(nullptr), -1);
    EXPECT_EQ(diagnostics().records().back().priority, 3);
    EXPECT_EQ(diagnostics().texts().back(),
              "Unable to open shared library \"" + watchedPath + "\" - error=Cannot allocate memory");
}

TEST_F(DynamicModuleFailures, TheMessageOfTheContainerCarriesTheSameErrno) {
    openErrno = ENOMEM;
    configure(targetLine("recording"));
    OpenContainer container(directory(), false);
    container->onCfgUpdate();
    EXPECT_THAT(diagnostics().records().back().priority, 3);
    EXPECT_EQ(diagnostics().texts().back(), "logtarget-container: Unable to load the logtarget-library \"" +
                                                watchedPath + "\" - errno=12(Cannot allocate memory)");
}

TEST_F(DynamicModuleFailures, AFailureToCloseIsAWarningWithTheLoadersText) {
    closeResult = -1;
    closeError = "/nowhere/no.so";
    const SyslogRecord message = closingMessage();
    EXPECT_EQ(message.text, "dlclose() failed, rc=-1, dlerror=/nowhere/no.so: cannot open shared object file: No such "
                            "file or directory, errno=Device or resource busy (lib=" +
                                watchedPath + ")");
    EXPECT_EQ(message.priority, 4);
}

TEST_F(DynamicModuleFailures, AFailureToCloseWithoutATextOfTheLoaderSaysNull) {
    closeResult = 3;
    EXPECT_EQ(closingMessage().text,
              "dlclose() failed, rc=3, dlerror=<null>, errno=Device or resource busy (lib=" + watchedPath + ")");
}
