#include "core/config/history_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/support/json.h"
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

// A pass reads the history while it waits for the network and appends to
// that reading at the end, unless the file changed in between.
TEST_F(HistoryStoreTest, AnEarlierReadingIsAppendedToOnlyWhileTheFileIsAsItWas) {
    EXPECT_EQ(store.read().stamp, files::Stamp{});  // no file yet: a reading of nothing, and usable
    store.appendOrThrow({record(1), record(2)});
    auto reading = store.read();
    ASSERT_TRUE(reading.stamp);
    EXPECT_EQ(reading.records, (std::vector<LaunchRecord>{record(1), record(2)}));

    // Unchanged: the reading is what is kept, without reading the file again.
    HistoryStore::Reading marked = reading;
    marked.records = {record(50)};
    store.appendOrThrow({record(3)}, &marked);
    EXPECT_EQ(store.loadOrThrow(), (std::vector<LaunchRecord>{record(3), record(50)}));

    // Changed since (another writer appended): read again, nothing lost.
    reading = store.read();
    store.appendOrThrow({record(4)});
    store.appendOrThrow({record(5)}, &reading);
    EXPECT_EQ(store.loadOrThrow(), (std::vector<LaunchRecord>{record(5), record(4), record(3), record(50)}));

    // A reading of a damaged file stands for nothing: the file is replaced.
    writeFile(store.url, "garbage");
    reading = store.read();
    EXPECT_FALSE(reading.stamp);
    EXPECT_TRUE(reading.records.empty());
    store.appendOrThrow({record(6)}, &reading);
    EXPECT_EQ(store.loadOrThrow(), std::vector<LaunchRecord>{record(6)});

    // A file removed since its reading is a change too.
    reading = store.read();
    std::filesystem::remove(store.url);
    store.appendOrThrow({record(7)}, &reading);
    EXPECT_EQ(store.loadOrThrow(), std::vector<LaunchRecord>{record(7)});
}

// Appending to a reading prints only the new records; the file must come out
// byte for byte as printing the whole list at once does.
TEST_F(HistoryStoreTest, AppendingToAReadingWritesTheSameBytes) {
    EXPECT_EQ(json::encodePrettyArray({}), json::encodePretty(json::Value::array()));
    std::vector<LaunchRecord> old;
    for (int number = 0; number < 5; ++number) old.push_back(record(number));
    old[2].detail = "line\nbreak \"quoted\" \xC3\xA9";
    store.appendOrThrow(old);
    const auto reading = store.read();
    ASSERT_EQ(reading.printed.size(), old.size());

    store.appendOrThrow({record(9)}, &reading);
    const std::string viaReading = readFile(store.url);
    std::vector<LaunchRecord> all{record(9)};
    all.insert(all.end(), old.begin(), old.end());
    json::Value whole = json::Value::array();
    for (const auto& each : all) whole.push_back(encode(each));
    EXPECT_EQ(viaReading, json::encodePretty(whole));
    EXPECT_EQ(store.loadOrThrow(), all);
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
