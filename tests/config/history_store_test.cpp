#include "core/config/history_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using testing::readFile;
using testing::TemporaryDirectory;
using testing::writeFile;

LaunchRecord record(int number, LaunchOutcome outcome = LaunchOutcome::launched) {
    return LaunchRecord{"com.example.app" + std::to_string(number), "App " + std::to_string(number), outcome,
                        Date{785000000.0 + number + 0.25}, "detail " + std::to_string(number)};
}

class HistoryStoreTest : public ::testing::Test {
protected:
    TemporaryDirectory folder;
    HistoryStore store{folder / "sub/history.json", 200};
};

TEST_F(HistoryStoreTest, MissingFileIsAnEmptyHistory) {
    EXPECT_TRUE(store.loadOrThrow().empty());
    EXPECT_FALSE(std::filesystem::exists(store.url));
}

TEST_F(HistoryStoreTest, AppendPutsTheNewPassFirstAndKeepsTheLimit) {
    std::vector<LaunchRecord> old;
    for (int number = 199; number >= 1; --number) old.push_back(record(number));
    store.appendOrThrow(old);
    ASSERT_EQ(store.loadOrThrow().size(), 199u);

    std::vector<LaunchRecord> pass = {record(1000), record(1001, LaunchOutcome::alreadyRunning),
                                      record(1002, LaunchOutcome::failed)};
    store.appendOrThrow(pass);
    auto loaded = store.loadOrThrow();
    ASSERT_EQ(loaded.size(), 200u);
    EXPECT_EQ(std::vector<LaunchRecord>(loaded.begin(), loaded.begin() + 3), pass);
    EXPECT_EQ(loaded[3], record(199));
    EXPECT_EQ(loaded.back(), record(3));  // the two oldest were dropped
}

TEST_F(HistoryStoreTest, EveryOutcomeAndFractionalDateRoundTrips) {
    std::vector<LaunchRecord> records;
    for (auto outcome : kAllLaunchOutcomes) records.push_back(record(static_cast<int>(records.size()), outcome));
    records.back().detail = "";
    store.appendOrThrow(records);
    EXPECT_EQ(store.loadOrThrow(), records);
    EXPECT_THAT(readFile(store.url), HasSubstr("\"outcome\": \"alreadyRunning\""));
    EXPECT_THAT(readFile(store.url), HasSubstr("\"timestamp\": 785000000.25"));
}

TEST_F(HistoryStoreTest, DamagedHistoryIsUnreadableButReplacedOnAppend) {
    for (const std::string text : {"{}", "garbage", R"([{"bundleIdentifier": "a", "name": "A", "outcome": "exploded", "timestamp": 1, "detail": ""}])"}) {
        writeFile(store.url, text);
        try {
            store.loadOrThrow();
            ADD_FAILURE() << text;
        } catch (const HistoryStoreError& error) {
            EXPECT_EQ(error.kind(), HistoryStoreError::Kind::read);
            EXPECT_THAT(error.what(), StartsWith("Could not read run history: "));
        }
        EXPECT_TRUE(store.load().empty());
        store.appendOrThrow({record(7)});
        EXPECT_EQ(store.loadOrThrow(), std::vector<LaunchRecord>{record(7)});
    }
}

TEST_F(HistoryStoreTest, WriteFailureIsReportedAndAppendSwallowsIt) {
    HistoryStore blocked{folder / "file", 200};
    writeFile(blocked.url, "x");
    HistoryStore inside{folder / "file/history.json", 200};
    try {
        inside.appendOrThrow({record(1)});
        FAIL();
    } catch (const HistoryStoreError& error) {
        EXPECT_EQ(error.kind(), HistoryStoreError::Kind::write);
        EXPECT_THAT(error.what(), StartsWith("Could not write run history: "));
    }
    EXPECT_NO_THROW(inside.append({record(1)}));
    EXPECT_EQ(readFile(blocked.url), "x");
}

}  // namespace
}  // namespace holdenmere
