#include "core/config/config_store.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/config/config_codec.h"
#include "core/config/history_store.h"
#include "tests/support/test_executables.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using testing::readFile;
using testing::TemporaryDirectory;
using testing::writeFile;

class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        ::setenv(name, value, 1);
    }
    ~ScopedEnvironment() {
        if (old_) {
            ::setenv(name_, old_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }

private:
    const char* name_;
    std::optional<std::string> old_;
};

TEST(ConfigStoreLocation, OverrideOrDefaultUnderHome) {
    ScopedEnvironment home("HOME", "/Users/someone");
    EXPECT_EQ(ConfigStore::resolving(std::nullopt).url,
              "/Users/someone/Library/Application Support/Holdenmere/config.json");
    EXPECT_EQ(ConfigStore::resolving(std::string()).url, ConfigStore::defaultURL());
    EXPECT_EQ(ConfigStore::resolving(std::string("~/x.json")).url, "~/x.json");
    EXPECT_EQ(HistoryStore::resolving(std::nullopt).url,
              "/Users/someone/Library/Application Support/Holdenmere/history.json");
    EXPECT_EQ(HistoryStore::resolving(std::string("/tmp/h.json")).limit, 200u);
}

class ConfigStoreTest : public ::testing::Test {
protected:
    TemporaryDirectory folder;
    ConfigStore store{folder / "deep/er/config.json"};
};

TEST_F(ConfigStoreTest, MissingFileGivesTheDefaultAndWritesNothing) {
    EXPECT_EQ(store.load(), HoldenmereConfig{});
    EXPECT_FALSE(std::filesystem::exists(folder / "deep"));
}

TEST_F(ConfigStoreTest, SaveCreatesFoldersAndLoadClamps) {
    HoldenmereConfig config;
    config.settings.pollInterval = 0.1;
    config.apps.push_back({"com.example.mail", "Mail", "/Applications/Mail.app"});
    store.save(config);
    HoldenmereConfig loaded = store.load();
    EXPECT_EQ(loaded.settings.pollInterval, 0.5);
    EXPECT_EQ(loaded.apps, config.apps);
    store.save(loaded);
    EXPECT_THAT(readFile(store.url), HasSubstr("\"pollInterval\": 0.5,"));
    // Nothing but the file itself is left in the folder.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(store.url.parent_path()),
                            std::filesystem::directory_iterator()),
              1);
}

TEST_F(ConfigStoreTest, DamagedFilesAreReportedAndLeftByteForByte) {
    const std::vector<std::string> damaged = {
        "not json at all",
        R"({"settings": {"probeURL": "x", "pollInterval": "fast", "maxAttempts": 6, "launchAnywayOnTimeout": true, "isEnabled": true}, "apps": []})",
        R"({"apps": []})",
        R"({"settings": {"probeURL": "x", "pollInterval": 2, "maxAttempts": 6, "launchAnywayOnTimeout": true, "isEnabled": true}, "apps": [],
            "delayedHelpers": [{"label": "l", "plistPath": "p", "appBundleIdentifier": "a", "name": "n", "mode": "pause"}]})",
    };
    for (const auto& text : damaged) {
        writeFile(store.url, text);
        try {
            store.load();
            ADD_FAILURE() << "loaded " << text;
        } catch (const ConfigStoreError& error) {
            EXPECT_EQ(error.kind(), ConfigStoreError::Kind::read);
            EXPECT_THAT(error.what(), StartsWith("Could not read config: "));
            EXPECT_EQ(std::string(error.what()), "Could not read config: " + error.description());
        }
        EXPECT_EQ(readFile(store.url), text);
    }
}

TEST_F(ConfigStoreTest, AFolderOrAnUnreadableFileIsAReadError) {
    std::filesystem::create_directories(store.url);
    try {
        store.load();
        FAIL();
    } catch (const ConfigStoreError& error) {
        EXPECT_STREQ(error.what(),
                     ("Could not read config: read(" + store.url.string() + "): not a regular file").c_str());
    }
    EXPECT_THROW(store.save(HoldenmereConfig{}), ConfigStoreError);

    if (::geteuid() != 0) {
        ConfigStore unreadable{folder / "unreadable.json"};
        writeFile(unreadable.url, "{}");
        ::chmod(unreadable.url.c_str(), 0);
        EXPECT_THROW(unreadable.load(), ConfigStoreError);
    }
}

TEST_F(ConfigStoreTest, WriteFailureKeepsThePreviousFile) {
    HoldenmereConfig first;
    first.apps.push_back({"com.example.first", "First", "/First.app"});
    store.save(first);
    const std::string before = readFile(store.url);
    // A file where the folder should be makes every later save fail.
    ConfigStore blocked{folder / "deep/er/config.json/inner.json"};
    try {
        blocked.save(first);
        FAIL();
    } catch (const ConfigStoreError& error) {
        EXPECT_EQ(error.kind(), ConfigStoreError::Kind::write);
        EXPECT_THAT(error.what(), StartsWith("Could not write config: mkdir("));
    }
    HoldenmereConfig invalid = first;
    invalid.apps[0].name = "\xff\xfe";
    EXPECT_THROW(store.save(invalid), ConfigStoreError);
    EXPECT_EQ(readFile(store.url), before);
}

TEST_F(ConfigStoreTest, KilledWriterNeverLeavesAPartialFile) {
    const auto path = folder / "crash/config.json";
    int interrupted = 0;
    for (int round = 0; round < 12; ++round) {
        auto result = testing::runTestHelper({"save-loop", path.string()}, std::chrono::milliseconds(60 + 7 * round));
        if (result.ending == ChildProcessResult::Ending::timedOut) ++interrupted;
        if (!std::filesystem::exists(path)) continue;
        const std::string text = readFile(path);
        HoldenmereConfig config;
        ASSERT_NO_THROW(config = config_codec::decode(text)) << text;
        EXPECT_TRUE(config.apps.size() == 3 || config.apps.size() == 40) << config.apps.size();
    }
    EXPECT_EQ(interrupted, 12);
    EXPECT_TRUE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace holdenmere
