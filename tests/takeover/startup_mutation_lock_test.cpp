#include "core/takeover/startup_mutation_lock.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using testing::TemporaryDirectory;

TEST(StartupMutationLock, LockFileLiesBesideTheConfig) {
    EXPECT_EQ(StartupMutationLock("/x/Holdenmere/config.json").url(), "/x/Holdenmere/config.json.startup-lock");
    EXPECT_EQ(StartupMutationLock("/tmp/other.json").url(), "/tmp/other.json.startup-lock");
}

TEST(StartupMutationLock, SecondProcessFailsWithWouldBlockUntilReleased) {
    TemporaryDirectory folder;
    const auto config = folder / "Holdenmere/config.json";
    StartupMutationLock lock(config);
    auto lease = lock.acquire(false);
    EXPECT_TRUE(lease.isHeld());

    struct stat info {};
    ASSERT_EQ(::stat(lock.url().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    auto blocked = testing::runTestHelper({"try-lock", config.string()});
    EXPECT_EQ(blocked.output, "errno " + std::to_string(EWOULDBLOCK) + "\n");
    EXPECT_EQ(blocked.status, 1);

    lease.release();
    lease.release();  // a second release does nothing
    EXPECT_FALSE(lease.isHeld());
    auto acquired = testing::runTestHelper({"try-lock", config.string()});
    EXPECT_EQ(acquired.output, "acquired\n");
    EXPECT_TRUE(std::filesystem::exists(lock.url()));  // the file stays for the next holder
}

TEST(StartupMutationLock, DestroyingALeaseReleasesIt) {
    TemporaryDirectory folder;
    StartupMutationLock lock(folder / "config.json");
    {
        auto lease = lock.acquire(false);
        auto moved = std::move(lease);
        EXPECT_FALSE(lease.isHeld());
        EXPECT_TRUE(moved.isHeld());
        EXPECT_THROW(lock.acquire(false), std::system_error);
    }
    EXPECT_NO_THROW(lock.acquire(false));
}

TEST(StartupMutationLock, WaitingAcquireQueuesBehindTheHolder) {
    TemporaryDirectory folder;
    StartupMutationLock lock(folder / "config.json");
    auto lease = lock.acquire(true);
    std::atomic<bool> acquired{false};
    std::thread waiter([&] {
        auto second = lock.acquire(true);
        acquired = true;
    });
    // The waiter cannot get past flock while the lease is held; releasing it
    // from this thread lets the waiter through.
    EXPECT_FALSE(acquired.load());
    lease.release();
    waiter.join();
    EXPECT_TRUE(acquired.load());
}

TEST(StartupMutationLock, SymbolicLinkAtTheLockPathIsRefused) {
    TemporaryDirectory folder;
    const auto config = folder / "config.json";
    std::filesystem::create_symlink(folder / "elsewhere", config.string() + ".startup-lock");
    try {
        auto lease = StartupMutationLock(config).acquire(false);
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ELOOP);
        EXPECT_THAT(error.what(), ::testing::StartsWith("open(" + config.string() + ".startup-lock): "));
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "elsewhere"));
}

TEST(StartupMutationLock, FolderThatCannotBeMadeIsAnError) {
    TemporaryDirectory folder;
    testing::writeFile(folder / "file", "x");
    try {
        auto lease = StartupMutationLock(folder / "file/config.json").acquire(true);
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOTDIR);
    }
}

}  // namespace
}  // namespace holdenmere
