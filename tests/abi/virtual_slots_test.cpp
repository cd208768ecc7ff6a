// The slots of the virtual tables, called through the bare tables as a compiled caller does.
#include <sorrel/dynamic_module.hpp>
#include <sorrel/level.h>
#include <sorrel/logger.hpp>

#include <cstddef>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <link.h>
#include <memory>
#include <new>

namespace {

using testing::ElementsAre;

using Strings = std::vector<std::string>;

const void* tableOf(const void* object) {
    return *static_cast<const void* const*>(object);
}

// The function in one slot of an object's table.
template <class Function>
Function* slot(const void* object, std::size_t index) {
    return reinterpret_cast<Function*>(static_cast<void* const*>(tableOf(object))[index]);
}

void* librarySymbol(const char* name) {
    void* const address = dlsym(RTLD_DEFAULT, name);
    EXPECT_NE(address, nullptr) << name;
    return address;
}

// The size of a table that the library exports.
std::size_t tableWords(const char* name) {
    Dl_info info;
    ElfW(Sym)* entry = nullptr;
    if (dladdr1(librarySymbol(name), &info, reinterpret_cast<void**>(&entry), RTLD_DL_SYMENT) == 0) {
        return 0;
    }
    return entry->st_size / sizeof(void*);
}

// Slot 0 destroys an object where it lies; slot 1 destroys it and gives back its memory.
template <class Base>
class Counted : public Base {
public:
    template <class... Arguments>
    explicit Counted(Arguments&&... arguments) : Base(std::forward<Arguments>(arguments)...) {}
    ~Counted() { ++destroyed; }

    static void operator delete(void* memory) {
        ++deleted;
        ::operator delete(memory);
    }

    static inline int destroyed = 0;
    static inline int deleted = 0;
};

template <class Base, class... Arguments>
void expectDestructorsInTheFirstTwoSlots(Arguments&&... arguments) {
    using Object = Counted<Base>;
    alignas(Object) unsigned char storage[sizeof(Object)];
    auto* const placed = ::new (storage) Object(arguments...);
    slot<void(void*)>(placed, 0)(placed);
    EXPECT_EQ(Object::destroyed, 1);
    EXPECT_EQ(Object::deleted, 0);

    auto* const allocated = ::new Object(arguments...);
    slot<void(void*)>(allocated, 1)(allocated);
    EXPECT_EQ(Object::destroyed, 2);
    EXPECT_EQ(Object::deleted, 1);
}

class RecordingTarget : public sorrel::ILogTarget {
public:
    void log(int processId, int depth, long long seconds, int microseconds, sorrel_level* level,
             const std::string& threadName, const std::string& componentName, const std::string& functionName,
             const std::string& text) override {
        calls.push_back("log " + std::to_string(processId) + " " + std::to_string(depth) + " " +
                        std::to_string(seconds) + " " + std::to_string(microseconds) + " " +
                        std::to_string(level->numeric) + " " + threadName + " " + componentName + " " + functionName +
                        " " + text);
    }
    void onComponentAdded(sorrel_component* component) override { calls.push_back("component " + component->name); }
    std::string getName() override { return "recording"; }
    bool isSyslogTarget() override { return true; }
    void setAppname(const std::string& name) override { calls.push_back("appname " + name); }

    Strings calls;
};

class RecordingFactory final : public sorrel::IClassFactory {
public:
    sorrel::IDynamicObject* createObject(const std::string& className,
                                         sorrel::IDynamicObjectCreationParams* params) override {
        calls.push_back("create " + className + (params != nullptr ? " with parameters" : ""));
        return &target;
    }
    void destroyObject(sorrel::IDynamicObject* object) override {
        calls.push_back(object == &target ? "destroy" : "destroy of another object");
    }

    RecordingTarget target;
    Strings calls;
};

class RecordingContainer : public sorrel::CLogTargetContainer {
public:
    RecordingContainer() : CLogTargetContainer("/nowhere", false, nullptr) {}
    void onComponentAdded(sorrel_component* component) override { calls.push_back("component " + component->name); }
    bool hasSyslogTarget() const override { return true; }
    void setAppname(const std::string& name) override { calls.push_back("appname " + name); }
    void lock() override { calls.emplace_back("lock"); }
    void unlock() override { calls.emplace_back("unlock"); }

    Strings calls;
};

TEST(VirtualSlots, DestructorsComeFirst) {
    expectDestructorsInTheFirstTwoSlots<RecordingTarget>();
    expectDestructorsInTheFirstTwoSlots<sorrel::IDynamicObject>();
    expectDestructorsInTheFirstTwoSlots<sorrel::CLogTargetParameters>();
    expectDestructorsInTheFirstTwoSlots<sorrel::CDynamicModule>("/nowhere/target.so");
    expectDestructorsInTheFirstTwoSlots<RecordingContainer>();
}

TEST(VirtualSlots, ATargetLogsInSlotTwo) {
    RecordingTarget target;
    const std::string threadName = "thread", componentName = "net", functionName = "connect", text = "hello";
    using Log = void(void*, int, int, long long, int, sorrel_level*, const std::string&, const std::string&,
                     const std::string&, const std::string&);
    slot<Log>(&target, 2)(&target, 1, -2, 5000000000LL, 4, SR_INFO, threadName, componentName, functionName, text);
    EXPECT_THAT(target.calls, ElementsAre("log 1 -2 5000000000 4 6 thread net connect hello"));
}

TEST(VirtualSlots, ATargetHearsOfComponentsInSlotThreeAndOfTheNameInSlotSix) {
    RecordingTarget target;
    sorrel_component component{"net", 0, {}};
    const std::string name = "app";
    slot<void(void*, sorrel_component*)>(&target, 3)(&target, &component);
    slot<void(void*, const std::string&)>(&target, 6)(&target, name);
    EXPECT_THAT(target.calls, ElementsAre("component net", "appname app"));
}

TEST(VirtualSlots, ATargetNamesItselfInSlotFourAndIsAskedForSyslogInSlotFive) {
    RecordingTarget target;
    EXPECT_EQ(slot<std::string(void*)>(&target, 4)(&target), "recording");
    EXPECT_TRUE(slot<bool(void*)>(&target, 5)(&target));
}

TEST(VirtualSlots, AFactoryCreatesInSlotZeroAndDestroysInSlotOne) {
    RecordingFactory factory;
    sorrel::CLogTargetParameters parameters;
    using Create = sorrel::IDynamicObject*(void*, const std::string&, sorrel::IDynamicObjectCreationParams*);
    sorrel::IDynamicObject* const object =
        slot<Create>(&factory, 0)(&factory, sorrel::ILogTarget::LOG_TARGET_CLASS_NAME, &parameters);
    EXPECT_EQ(object, &factory.target);
    slot<void(void*, sorrel::IDynamicObject*)>(&factory, 1)(&factory, object);
    EXPECT_THAT(factory.calls, ElementsAre("create LogTarget with parameters", "destroy"));
}

TEST(VirtualSlots, ASinkSetsLevelsInSlotZero) {
    CSorrel logger(false);
    const std::string name = "net", level = "1010";
    EXPECT_EQ(slot<int(void*, const std::string&, const std::string&)>(&logger, 0)(&logger, name, level), 0);
    ASSERT_NE(logger.getComponentByName("net"), nullptr);
    EXPECT_EQ(logger.getComponentByName("net")->mask, 10U);
}

TEST(VirtualSlots, AContainerHasFiveOperationsBehindItsDestructors) {
    RecordingContainer container;
    sorrel_component component{"net", 0, {}};
    const std::string name = "app";
    slot<void(void*, sorrel_component*)>(&container, 2)(&container, &component);
    EXPECT_TRUE(slot<bool(const void*)>(&container, 3)(&container));
    slot<void(void*, const std::string&)>(&container, 4)(&container, name);
    slot<void(void*)>(&container, 5)(&container);
    slot<void(void*)>(&container, 6)(&container);
    EXPECT_THAT(container.calls, ElementsAre("component net", "appname app", "lock", "unlock"));
}

// The tables that the library itself holds, entry by entry.
TEST(VirtualSlots, TheLibrarysOwnTablesHoldItsExportedFunctions) {
    const auto container = std::make_unique<sorrel::CLogTargetContainer>("/nowhere", false, nullptr);
    const char* const containerSlots[] = {
        "_ZN6sorrel19CLogTargetContainerD1Ev",
        "_ZN6sorrel19CLogTargetContainerD0Ev",
        "_ZN6sorrel19CLogTargetContainer16onComponentAddedEP16sorrel_component",
        "_ZNK6sorrel19CLogTargetContainer15hasSyslogTargetEv",
        "_ZN6sorrel19CLogTargetContainer10setAppnameERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE",
        "_ZN6sorrel19CLogTargetContainer4lockEv",
        "_ZN6sorrel19CLogTargetContainer6unlockEv",
    };
    for (std::size_t i = 0; i < std::size(containerSlots); ++i) {
        EXPECT_EQ(slot<void()>(container.get(), i), reinterpret_cast<void (*)()>(librarySymbol(containerSlots[i])))
            << "slot " << i;
    }
    const sorrel::CDynamicModule module("/nowhere/target.so");
    const char* const moduleSlots[] = {"_ZN6sorrel14CDynamicModuleD1Ev", "_ZN6sorrel14CDynamicModuleD0Ev"};
    for (std::size_t i = 0; i < std::size(moduleSlots); ++i) {
        EXPECT_EQ(slot<void()>(&module, i), reinterpret_cast<void (*)()>(librarySymbol(moduleSlots[i])))
            << "slot " << i;
    }
    EXPECT_EQ(tableOf(&module), static_cast<void**>(librarySymbol("_ZTVN6sorrel14CDynamicModuleE")) + 2);
    EXPECT_EQ(tableOf(container.get()), static_cast<void**>(librarySymbol("_ZTVN6sorrel19CLogTargetContainerE")) + 2);
}

// A table holds two words (offset and type) before its slots.
TEST(VirtualSlots, TheLibrarysTablesHaveNoFurtherSlots) {
    EXPECT_EQ(tableWords("_ZTVN6sorrel19CLogTargetContainerE"), 2U + 7U);
    EXPECT_EQ(tableWords("_ZTVN6sorrel10ILogTargetE"), 2U + 7U);
    EXPECT_EQ(tableWords("_ZTVN6sorrel14CDynamicModuleE"), 2U + 2U);
    EXPECT_EQ(tableWords("_ZTVN6sorrel14IDynamicObjectE"), 2U + 2U);
    EXPECT_EQ(tableWords("_ZTVN6sorrel28IDynamicObjectCreationParamsE"), 2U + 2U);
    EXPECT_EQ(tableWords("_ZTVN6sorrel20CLogTargetParametersE"), 2U + 2U);
    EXPECT_EQ(tableWords("_ZTV7CSorrel"), 2U + 1U);
}

} // namespace
