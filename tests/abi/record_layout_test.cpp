// Where the fields of the public records lie. Programs and plug-ins have these offsets compiled in, so a field never
// moves; what is expected follows from the sizes of the field types alone, whatever the word size. The container and
// the logger have private fields behind those that are expected here.
#include <sorrel/cfread.h>
#include <sorrel/dynamic_module.hpp>
#include <sorrel/level.h>
#include <sorrel/logger.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <gmock/gmock.h>
#include <pthread.h>
#include <thread>

namespace {

using testing::ElementsAreArray;

using Parameters = std::map<std::string, std::string>;
using Pointer = void*;
using TablePointer = void*; // to the virtual table, at the start of an object

// A record that holds fields of these types, one behind the other.
template <class... Fields>
struct Record {
    static constexpr std::size_t kCount = sizeof...(Fields);

    static constexpr std::size_t aligned(std::size_t offset, std::size_t alignment) {
        return (offset + alignment - 1) / alignment * alignment;
    }

    static constexpr std::array<std::size_t, kCount> offsets() {
        const std::size_t sizes[] = {sizeof(Fields)...};
        const std::size_t alignments[] = {alignof(Fields)...};
        std::array<std::size_t, kCount> result{};
        std::size_t end = 0;
        for (std::size_t i = 0; i < kCount; ++i) {
            result[i] = aligned(end, alignments[i]);
            end = result[i] + sizes[i];
        }
        return result;
    }

    static constexpr std::size_t size() {
        const std::size_t sizes[] = {sizeof(Fields)...};
        std::size_t alignment = 1;
        for (const std::size_t fieldAlignment : {alignof(Fields)...}) {
            alignment = fieldAlignment > alignment ? fieldAlignment : alignment;
        }
        return aligned(offsets()[kCount - 1] + sizes[kCount - 1], alignment);
    }
};

using Container = Record<TablePointer, std::string, std::map<std::string, sorrel::CPluggableLogModule>, std::thread*,
                         pthread_mutex_t, bool, std::string, Pointer, int, int, int, int[2]>;
using Logger = Record<TablePointer, std::map<std::string, sorrel_component*>, pthread_mutex_t, std::string,
                      sorrel::CLogTargetContainer>;
using Module = Record<TablePointer, Pointer, std::string>;

template <class Object, class... Fields>
std::array<std::size_t, sizeof...(Fields)> offsetsIn(const Object& object, const Fields&... fields) {
    const auto start = reinterpret_cast<std::uintptr_t>(&object);
    return {{(reinterpret_cast<std::uintptr_t>(&fields) - start)...}};
}

// The memory of an object where a field of this type is expected.
template <class Field, class Object>
Field& fieldAt(Object& object, std::size_t offset) {
    return *reinterpret_cast<Field*>(reinterpret_cast<char*>(&object) + offset);
}

// Whether another thread could take the mutex.
bool isFree(pthread_mutex_t& mutex) {
    int rc = -1;
    std::thread([&] {
        rc = pthread_mutex_trylock(&mutex);
        if (rc == 0) {
            pthread_mutex_unlock(&mutex);
        }
    }).join();
    return rc == 0;
}

class ContainerProbe : public sorrel::CLogTargetContainer {
public:
    ContainerProbe() : CLogTargetContainer("/nowhere", false, nullptr) {}

    std::array<std::size_t, Container::kCount - 1> fieldOffsets() const {
        return offsetsIn(static_cast<const CLogTargetContainer&>(*this), m_configPath, m_targets, m_worker, m_mutex,
                         m_hasSyslogTarget, m_appname, m_updateSink, m_epollFd, m_inotifyFd, m_watchFd, m_pipeFds);
    }
};

TEST(RecordLayout, ALevelIsItsNumericThenItsMask) {
    using Expected = Record<int, unsigned int>;
    const sorrel_level level = {};
    EXPECT_THAT(offsetsIn(level, level.numeric, level.mask), ElementsAreArray(Expected::offsets()));
    EXPECT_EQ(sizeof(sorrel_level), Expected::size());
    EXPECT_EQ(sizeof(sorrel_level), 8U);
}

TEST(RecordLayout, ALevelCollectionIsAnAddressThenACountOf32Bits) {
    using Expected = Record<Pointer, unsigned int>;
    const sorrel_level_collection collection = {};
    EXPECT_THAT(offsetsIn(collection, collection.first, collection.count), ElementsAreArray(Expected::offsets()));
    EXPECT_EQ(sizeof collection, Expected::size());
    EXPECT_EQ(sizeof collection.count, 4U);
}

TEST(RecordLayout, AComponentIsNameMaskAndDescriptions) {
    using Expected = Record<std::string, unsigned int, std::vector<std::pair<unsigned int, std::string>>>;
    const sorrel_component component{};
    EXPECT_THAT(offsetsIn(component, component.name, component.mask, component.levelDescriptions),
                ElementsAreArray(Expected::offsets()));
    EXPECT_EQ(sizeof component, Expected::size());
}

TEST(RecordLayout, AThreadRecordIsFunctionsDepthAndName) {
    using Expected = Record<std::deque<std::string>, int, std::string>;
    const CSorrel::thread_data_t record;
    EXPECT_THAT(offsetsIn(record, record.functionStack, record.depth, record.threadName),
                ElementsAreArray(Expected::offsets()));
    EXPECT_EQ(sizeof record, Expected::size());
}

TEST(RecordLayout, ALoadedTargetIsModuleTargetAndSeenFlag) {
    using Expected = Record<Pointer, Pointer, bool>;
    const sorrel::CPluggableLogModule entry{};
    EXPECT_THAT(offsetsIn(entry, entry.module, entry.target, entry.seen), ElementsAreArray(Expected::offsets()));
    EXPECT_EQ(sizeof entry, Expected::size());
}

TEST(RecordLayout, TargetParametersAreOneMapBehindTheTablePointer) {
    using Expected = Record<TablePointer, Parameters>;
    const sorrel::CLogTargetParameters parameters;
    EXPECT_EQ(offsetsIn(parameters, parameters.params)[0], Expected::offsets()[1]);
    EXPECT_EQ(sizeof parameters, Expected::size());
}

TEST(RecordLayout, AReaderEntryIsIndexKeyValueAndNumber) {
    using Expected = Record<int, char*, char*, int>;
    const cfread_entry entry = {};
    EXPECT_THAT(offsetsIn(entry, entry.index, entry.key, entry.value, entry.number),
                ElementsAreArray(Expected::offsets()));
    EXPECT_EQ(sizeof entry, Expected::size());
}

TEST(RecordLayout, AReaderHandleHoldsItsSevenFieldsInOrder) {
    using Expected = Record<int, int, Pointer, const char*, cfread_callback, Pointer, bool>;
    const cfread_handle handle = {};
    EXPECT_THAT(offsetsIn(handle, handle.count, handle.capacity, handle.table, handle.file_name, handle.callback,
                          handle.user_data, handle.report_empty),
                ElementsAreArray(Expected::offsets()));
    EXPECT_EQ(sizeof handle, Expected::size());
}

TEST(RecordLayout, TheMutexWrapperIsThePosixMutexAndNothingElse) {
    EXPECT_EQ(sizeof(sorrel::CRecursiveMutex), sizeof(pthread_mutex_t));
    EXPECT_EQ(alignof(sorrel::CRecursiveMutex), alignof(pthread_mutex_t));
}

TEST(RecordLayout, NotificationsAreFourBytes) {
    EXPECT_EQ(sizeof(sorrel::CLogTargetContainer::thread_notification), 4U);
    EXPECT_EQ(sorrel::CLogTargetContainer::THREAD_NOTIFICATION_TERMINATE, 0);
    EXPECT_EQ(sorrel::CLogTargetContainer::THREAD_NOTIFICATION_APPNAME, 1);
}

TEST(RecordLayout, AContainerBeginsWithItsFieldsInOrderWithNothingBetweenThem) {
    const ContainerProbe probe;
    const auto expected = Container::offsets();
    EXPECT_THAT(probe.fieldOffsets(), ElementsAreArray(expected.begin() + 1, expected.end()));
    EXPECT_GE(sizeof(sorrel::CLogTargetContainer), Container::size());
}

TEST(RecordLayout, AModuleIsItsHandleThenItsPath) {
    sorrel::CDynamicModule module(""); // the program itself, so that there is something to open
    const auto offsets = Module::offsets();
    EXPECT_EQ(fieldAt<Pointer>(module, offsets[1]), nullptr);
    ASSERT_EQ(module.load(nullptr), 0);
    EXPECT_NE(fieldAt<Pointer>(module, offsets[1]), nullptr);
    EXPECT_EQ(&fieldAt<std::string>(module, offsets[2]), &module.getLibPath());
    EXPECT_EQ(sizeof module, Module::size());
}

TEST(RecordLayout, ALoggerBeginsWithItsRegistryLockNameAndContainer) {
    CSorrel logger(false);
    const auto offsets = Logger::offsets();

    sorrel_component* const component = logger.createComponent("net", SR_INFO, "");
    using Registry = std::map<std::string, sorrel_component*>;
    EXPECT_THAT(fieldAt<Registry>(logger, offsets[1]), testing::ElementsAre(testing::Pair("net", component)));

    auto& lock = fieldAt<pthread_mutex_t>(logger, offsets[2]);
    EXPECT_TRUE(isFree(lock));
    logger.lockComponents();
    EXPECT_FALSE(isFree(lock));
    logger.unlockComponents();
    EXPECT_TRUE(isFree(lock));

    const auto& appname = fieldAt<std::string>(logger, offsets[3]);
    EXPECT_EQ(appname, "[no-appname-set]");
    logger.setApplicationname_Nosorrel("player");
    EXPECT_EQ(appname, "player");

    auto& container = fieldAt<sorrel::CLogTargetContainer>(logger, offsets[4]);
    EXPECT_EQ(container.getDefaultCfgFilename(), "/etc/sorrel/sorrel.cfg");
    EXPECT_GE(sizeof logger, Logger::size());
}

TEST(RecordLayout, ALoggerIsItsOwnConfigurationSink) {
    CSorrel logger(false);
    EXPECT_EQ(static_cast<void*>(static_cast<sorrel::IComponentCfgUpdateSink*>(&logger)), static_cast<void*>(&logger));
}

} // namespace
