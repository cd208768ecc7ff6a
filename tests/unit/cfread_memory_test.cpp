// The config-file reader when memory is out. The linker sends the allocations of the reader to the functions below (see
// CMakeLists.txt).
#include "cfread_support.hpp"
#include "proc_self.hpp"

#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>

using testing::ElementsAre;
using testing::Pair;

namespace {

int allocationsUntilFailure = -1; // -1: none fails
int liveAllocations = 0;
constexpr std::uintptr_t kNoEntry = 1; // stands behind each table: whoever takes it for an entry crashes

bool isToFail() {
    return allocationsUntilFailure >= 0 && allocationsUntilFailure-- == 0;
}

template <class Type>
Type* counted(Type* memory) {
    liveAllocations += memory != nullptr ? 1 : 0;
    return memory;
}

// Lets one allocation fail: the one after the next `before`. Takes it back at the end of its scope.
class FailingAllocation {
public:
    explicit FailingAllocation(int before) { allocationsUntilFailure = before; }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
    ~FailingAllocation() { allocationsUntilFailure = -1; }
};

} // namespace

extern "C" {

void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
char* __real_strdup(const char* text);
void __real_free(void* memory);

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return isToFail() ? nullptr : counted(__real_calloc(count, size));
}

void* __wrap_realloc(void* memory, std::size_t size) {
    if (isToFail()) {
        return nullptr;
    }
    void* const moved = __real_realloc(memory, size + sizeof kNoEntry);
    std::memcpy(static_cast<char*>(moved) + size, &kNoEntry, sizeof kNoEntry);
    return memory == nullptr ? counted(moved) : moved;
}

char* __wrap_strdup(const char* text) {
    return isToFail() ? nullptr : counted(__real_strdup(text));
}

void __wrap_free(void* memory) {
    liveAllocations -= memory != nullptr ? 1 : 0;
    __real_free(memory);
}

} // extern "C"

namespace {

class CfreadMemory : public CfreadReportFixture {
protected:
    // Sets an entry while the allocation after the next `before` fails.
    cfread_entry* setWithFailure(int before, const char* key, const char* value) {
        const FailingAllocation failure(before);
        return cfread_set_entry(m_table.get(), key, value);
    }

    void fill(int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_NE(cfread_set_entry(m_table.get(), ("key" + std::to_string(i)).c_str(), "v"), nullptr);
        }
    }

    std::string notAdded(const std::string& key) const {
        return "cfread: unable to add entry '" + key + "' in " + path();
    }

    CfreadTable m_table = openTable("");
};

} // namespace

TEST_F(CfreadMemory, WithoutAHandleNothingIsOpened) {
    write("k=v\n");
    const FailingAllocation failure(0);
    EXPECT_EQ(cfread_open(path().c_str()), nullptr);
    expectErrors({});
}

TEST_F(CfreadMemory, AnEntryOfAFileThatCannotBeStoredFailsTheParse) {
    write("#comment\nk=v\n");
    const int liveBefore = liveAllocations;
    const auto openBefore = openDescriptors();
    for (const int behindHandle : {1, 2, 3, 4}) { // the table, the entry, its key, its value
        const FailingAllocation failure(behindHandle);
        EXPECT_EQ(cfread_open(path().c_str()), nullptr);
        expectErrors({notAdded("k"), "cfread: unable to add entry in " + path() + " at line 2"});
    }
    EXPECT_EQ(liveAllocations, liveBefore);
    EXPECT_EQ(openDescriptors(), openBefore);
}

TEST_F(CfreadMemory, AFileOfOneEntryTakesFiveAllocations) {
    write("k=v\n");
    const FailingAllocation failure(5);
    const CfreadTable table(cfread_open(path().c_str()));
    EXPECT_NE(table, nullptr);
    EXPECT_EQ(allocationsUntilFailure, 0);
}

TEST_F(CfreadMemory, ATableThatCannotBeMadeLeavesTheHandleUsable) {
    EXPECT_EQ(setWithFailure(0, "k", "v"), nullptr);
    expectErrors({notAdded("k")});
    EXPECT_EQ(m_table->table, nullptr);
    EXPECT_EQ(m_table->capacity, 0);
    EXPECT_NE(cfread_set_entry(m_table.get(), "k", "v"), nullptr);
}

TEST_F(CfreadMemory, AnEntryThatCannotBeMadeLeavesNothingBehind) {
    fill(1);
    const int liveBefore = liveAllocations;
    for (const int failing : {0, 1, 2}) { // the entry, its key, its value
        EXPECT_EQ(setWithFailure(failing, "k", "v"), nullptr);
        expectErrors({notAdded("k")});
    }
    EXPECT_EQ(liveAllocations, liveBefore);
    EXPECT_EQ(m_table->count, 1);
    EXPECT_EQ(cfread_find_entry(m_table.get(), "k"), nullptr);
    EXPECT_EQ(cfread_set_entry(m_table.get(), "k", "v")->index, 1);
}

TEST_F(CfreadMemory, AFullTableThatCannotGrowKeepsItsEntries) {
    fill(64);
    EXPECT_EQ(setWithFailure(0, "k", "v"), nullptr);
    expectErrors({notAdded("k")});
    EXPECT_EQ(m_table->capacity, 64);
    EXPECT_EQ(m_table->count, 64);
    EXPECT_NE(cfread_find_entry(m_table.get(), "key63"), nullptr);
    EXPECT_EQ(cfread_set_entry(m_table.get(), "k", "v")->index, 64);
}

TEST_F(CfreadMemory, AReplacementThatFailsStillRemovesTheOldEntry) {
    fill(2);
    EXPECT_EQ(setWithFailure(0, "key0", "new"), nullptr);
    expectErrors({notAdded("key0")});
    EXPECT_EQ(cfread_find_entry(m_table.get(), "key0"), nullptr);
    EXPECT_EQ(m_table->table[0], nullptr);
    EXPECT_EQ(m_table->count, 1);
}

TEST_F(CfreadMemory, AReplacedEntryMovesToALowerSlotThatHasBecomeFree) {
    fill(3);
    setWithFailure(0, "key0", "new");
    const cfread_entry* const moved = cfread_set_entry(m_table.get(), "key2", "new");
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(moved->index, 0);
    EXPECT_EQ(m_table->table[0], moved);
    EXPECT_EQ(m_table->table[2], nullptr);
    EXPECT_EQ(cfread_set_entry(m_table.get(), "key3", "v")->index, 2);
}

TEST_F(CfreadMemory, ClosingFreesEverything) {
    const int liveBefore = liveAllocations;
    {
        const CfreadTable table = openTable("a=1\nb=2\na=3\n");
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(liveAllocations, liveBefore + 8); // the handle, the table, and three for each entry
    }
    EXPECT_EQ(liveAllocations, liveBefore);
}

TEST_F(CfreadMemory, TheCallbackModeKeepsNothing) {
    const FailingAllocation failure(0);
    EXPECT_THAT(parse("k=v\n").entries, ElementsAre(Pair("k", "v")));
    EXPECT_EQ(allocationsUntilFailure, 0);
}

TEST_F(CfreadMemory, ANullCallbackKeepsNothingAfterTheParse) {
    write("k=v\n");
    const int liveBefore = liveAllocations;
    EXPECT_EQ(cfread_parse_with_callback(path().c_str(), nullptr, nullptr, 0), 0);
    EXPECT_EQ(liveAllocations, liveBefore);
    const FailingAllocation failure(0);
    EXPECT_EQ(cfread_parse_with_callback(path().c_str(), nullptr, nullptr, 0), -1);
}
