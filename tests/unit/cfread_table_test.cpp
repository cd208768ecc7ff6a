// The table mode of the config-file reader.
#include "cfread_support.hpp"

#include <gmock/gmock.h>

using testing::IsNull;
using testing::NotNull;

namespace {

using CfreadTableMode = CfreadFixture;

// A table without entries, made without a file.
CfreadTable emptyTable() {
    auto* const handle = static_cast<cfread_handle*>(std::calloc(1, sizeof(cfread_handle)));
    handle->file_name = "some.cfg";
    return CfreadTable(handle);
}

int numberOf(const char* value) {
    const CfreadTable table = emptyTable();
    return cfread_set_entry(table.get(), "k", value)->number;
}

std::string keyOf(int number) {
    return "key" + std::to_string(number);
}

// Expects the entries key0, key1, ... in the slots 0, 1, ...
void expectNumbered(const cfread_handle& table, int count) {
    EXPECT_EQ(table.count, count);
    for (int i = 0; i < count; ++i) {
        const cfread_entry* const entry = cfread_find_entry(&table, keyOf(i).c_str());
        ASSERT_NE(entry, nullptr) << i;
        EXPECT_EQ(entry->index, i);
        EXPECT_EQ(table.table[i], entry);
        EXPECT_EQ(entry->number, i);
    }
}

// Expects all slots from `first` on to be empty.
void expectFree(const cfread_handle& table, int first) {
    for (int slot = first; slot < table.capacity; ++slot) {
        EXPECT_EQ(table.table[slot], nullptr) << slot;
    }
}

} // namespace

TEST_F(CfreadTableMode, TheEntriesOfAFileCanBeLookedUp) {
    const CfreadTable table = openTable("# comment\nkey0=0\n\nkey 1= 1\n");
    ASSERT_NE(table, nullptr);
    expectNumbered(*table, 2);
    EXPECT_STREQ(table->table[1]->key, "key1");
    EXPECT_STREQ(table->table[1]->value, "1");
}

TEST_F(CfreadTableMode, TheFirstEntryBringsATableOf64Slots) {
    const CfreadTable table = openTable("key0=0\n");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->capacity, 64);
    expectFree(*table, 1);
}

TEST_F(CfreadTableMode, AnEmptyFileIsASuccessWithoutEntries) {
    const CfreadTable table = openTable("");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->count, 0);
    EXPECT_EQ(table->capacity, 0);
    EXPECT_EQ(table->table, nullptr);
    EXPECT_EQ(cfread_find_entry(table.get(), "k"), nullptr);
}

TEST_F(CfreadTableMode, TheRestOfTheHandleBelongsToTheCallbackMode) {
    const CfreadTable table = openTable("k=v\n");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->callback, nullptr);
    EXPECT_EQ(table->user_data, nullptr);
    EXPECT_FALSE(table->report_empty);
}

TEST_F(CfreadTableMode, KeepsTheCallersOwnStringAsFileName) {
    const CfreadTable table = openTable("k=v\n");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->file_name, path().c_str());
}

TEST_F(CfreadTableMode, LinesWithoutKeyOrValueAreLeftOut) {
    const CfreadTable table = openTable("\n=v\nk\nl=\nm=  \n #x\nkey0=0\n");
    ASSERT_NE(table, nullptr);
    expectNumbered(*table, 1);
}

TEST_F(CfreadTableMode, ALaterLineReplacesTheEntryOfItsKey) {
    const CfreadTable table = openTable("a=1\nb=2\na=3\n");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->count, 2);
    EXPECT_EQ(cfread_find_entry(table.get(), "a")->number, 3);
    EXPECT_EQ(cfread_find_entry(table.get(), "a")->index, 0);
}

TEST_F(CfreadTableMode, ABrokenFileYieldsNoTable) {
    EXPECT_EQ(openTable("a=1\nb=2\nc=3"), nullptr);
    EXPECT_EQ(CfreadTable(cfread_open((path() + ".missing").c_str())), nullptr);
}

TEST_F(CfreadTableMode, KeysAreComparedExactly) {
    const CfreadTable table = openTable("Key=v\n");
    ASSERT_NE(table, nullptr);
    EXPECT_THAT(cfread_find_entry(table.get(), "Key"), NotNull());
    for (const char* other : {"key", "KEY", "Ke", "Keys", " Key"}) {
        EXPECT_THAT(cfread_find_entry(table.get(), other), IsNull()) << other;
    }
}

TEST_F(CfreadTableMode, NothingIsFoundForNullOrEmpty) {
    const CfreadTable table = openTable("k=v\n");
    EXPECT_EQ(cfread_find_entry(table.get(), nullptr), nullptr);
    EXPECT_EQ(cfread_find_entry(table.get(), ""), nullptr);
    EXPECT_EQ(cfread_find_entry(nullptr, "k"), nullptr);
}

TEST_F(CfreadTableMode, ClosingNullIsIgnored) {
    cfread_close(nullptr);
}

TEST(CfreadSetEntry, StoresCopiesAndReturnsTheEntry) {
    const CfreadTable table = emptyTable();
    std::string key = "k";
    std::string value = "v";
    const cfread_entry* const entry = cfread_set_entry(table.get(), key.c_str(), value.c_str());
    key = "x";
    value = "y";
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(entry->key, "k");
    EXPECT_STREQ(entry->value, "v");
    EXPECT_EQ(table->count, 1);
    EXPECT_EQ(cfread_find_entry(table.get(), "k"), entry);
}

TEST(CfreadSetEntry, NeedsAHandleAndAKey) {
    const CfreadTable table = emptyTable();
    EXPECT_EQ(cfread_set_entry(nullptr, "k", "v"), nullptr);
    EXPECT_EQ(cfread_set_entry(table.get(), nullptr, "v"), nullptr);
    EXPECT_EQ(cfread_set_entry(table.get(), "", "v"), nullptr);
    EXPECT_EQ(table->count, 0);
    EXPECT_EQ(table->capacity, 0);
}

TEST(CfreadSetEntry, ANullValueIsStoredAsTheEmptyString) {
    const CfreadTable table = emptyTable();
    const cfread_entry* const entry = cfread_set_entry(table.get(), "k", nullptr);
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(entry->value, "");
    EXPECT_EQ(entry->number, -1);
}

TEST(CfreadSetEntry, DoesNotReadItsArgumentsAsLines) {
    const CfreadTable table = emptyTable();
    const std::string longKey(300, 'k');
    ASSERT_NE(cfread_set_entry(table.get(), " a=\n", "#\r\n"), nullptr);
    ASSERT_NE(cfread_set_entry(table.get(), longKey.c_str(), "1"), nullptr);
    EXPECT_STREQ(cfread_find_entry(table.get(), " a=\n")->value, "#\r\n");
    EXPECT_EQ(cfread_find_entry(table.get(), longKey.c_str())->number, 1);
}

TEST(CfreadSetEntry, ReplacesTheEntryOfItsKey) {
    const CfreadTable table = emptyTable();
    cfread_set_entry(table.get(), "a", "1");
    cfread_set_entry(table.get(), "b", "2");
    const cfread_entry* const entry = cfread_set_entry(table.get(), "a", "new");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(table->count, 2);
    EXPECT_EQ(entry->index, 0);
    EXPECT_STREQ(cfread_find_entry(table.get(), "a")->value, "new");
    EXPECT_EQ(entry->number, -1);
}

TEST(CfreadSetEntry, TakesKeyAndValueOfTheEntryThatItReplaces) {
    const CfreadTable table = emptyTable();
    const cfread_entry* const old = cfread_set_entry(table.get(), "key", "some value");
    const cfread_entry* const entry = cfread_set_entry(table.get(), old->key, old->value);
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(entry->key, "key");
    EXPECT_STREQ(entry->value, "some value");
    EXPECT_EQ(table->count, 1);
}

TEST(CfreadSetEntry, TheTableGrowsIn64SlotsAndKeepsItsEntries) {
    const CfreadTable table = emptyTable();
    for (int i = 0; i < 129; ++i) {
        ASSERT_NE(cfread_set_entry(table.get(), keyOf(i).c_str(), std::to_string(i).c_str()), nullptr);
        EXPECT_EQ(table->capacity, (i / 64 + 1) * 64);
    }
    expectNumbered(*table, 129);
    expectFree(*table, 129);
}

TEST(CfreadSetEntry, AFullTableReplacesWithoutGrowing) {
    const CfreadTable table = emptyTable();
    for (int i = 0; i < 64; ++i) {
        cfread_set_entry(table.get(), keyOf(i).c_str(), std::to_string(i).c_str());
    }
    ASSERT_NE(cfread_set_entry(table.get(), "key40", "40"), nullptr);
    EXPECT_EQ(table->capacity, 64);
    expectNumbered(*table, 64);
}

TEST(CfreadNumber, DecimalNumbersMayHaveASign) {
    EXPECT_EQ(numberOf("12"), 12);
    EXPECT_EQ(numberOf("-3"), -3);
    EXPECT_EQ(numberOf("+7"), 7);
    EXPECT_EQ(numberOf("0"), 0);
    EXPECT_EQ(numberOf("-0"), 0);
    EXPECT_EQ(numberOf("007"), 7);
}

TEST(CfreadNumber, ALoneSignIsZero) {
    EXPECT_EQ(numberOf("+"), 0);
    EXPECT_EQ(numberOf("-"), 0);
}

TEST(CfreadNumber, TrueIsOneAndFalseIsZero) {
    EXPECT_EQ(numberOf("true"), 1);
    EXPECT_EQ(numberOf("false"), 0);
}

TEST(CfreadNumber, AnythingElseIsMinusOne) {
    for (const char* value : {"", "12a", "a12", "1 ", " 1", "1.5", "+-1", "--1", "1-", "0x10", "True", "FALSE", "true ",
                              "falsehood", "yes"}) {
        EXPECT_EQ(numberOf(value), -1) << value;
    }
}

TEST(CfreadNumber, NumbersUpToTheExtremeOnesAreRead) {
    EXPECT_EQ(numberOf("2147483646"), 2147483646);
    EXPECT_EQ(numberOf("-2147483647"), -2147483647);
}

TEST(CfreadNumber, NumbersBeyond32BitsAreMinusOne) {
    for (const char* value : {"2147483648", "-2147483649", "4294967296", "-4294967301", "9223372036854775807",
                              "-9223372036854775808", "99999999999999999999", "-99999999999999999999"}) {
        EXPECT_EQ(numberOf(value), -1) << value;
    }
}

TEST(CfreadNumber, KeepsTheTwoExtremeNumbersAsMinusOne) {
    EXPECT_EQ(numberOf("2147483647"), -1);
    EXPECT_EQ(numberOf("-2147483648"), -1);
}
