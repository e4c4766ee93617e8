#include "core/support/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> linesOf(const fs::path& file, std::size_t lineLimit = files::kReadLimit) {
    std::vector<std::string> lines;
    files::forEachLine(
        file, [&](std::string_view line) { lines.emplace_back(line); }, lineLimit);
    return lines;
}

void readWhole(const fs::path& file) { (void)files::read(file); }
void readLines(const fs::path& file) { (void)linesOf(file); }

std::optional<files::ReadError> failureOf(void (*reader)(const fs::path&), const fs::path& file) {
    try {
        reader(file);
    } catch (const files::ReadError& error) {
        return error;
    }
    return std::nullopt;
}

// Both readers refuse what is not a regular file of sensible size at once,
// without waiting on it: a pipe nobody writes would otherwise block the open
// for good (the test would run into CTest's time limit).
TEST(GuardedRead, PipesFoldersAndOversizedFilesAreRefusedAtOnce) {
    testing::TemporaryDirectory folder;
    const fs::path pipe = folder / "pipe.plist";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const fs::path subfolder = folder / "folder.plist";
    fs::create_directory(subfolder);
    // Sparse: one byte past the limit costs no disk.
    const fs::path huge = folder / "huge.plist";
    testing::writeFile(huge, "");
    ASSERT_EQ(::truncate(huge.c_str(), static_cast<off_t>(files::kReadLimit) + 1), 0);

    struct Case {
        fs::path path;
        files::ReadFailure failure;
        std::string reason;
    };
    for (const auto& [path, failure, reason] :
         std::vector<Case>{{pipe, files::ReadFailure::notRegularFile, "not a regular file"},
                           {subfolder, files::ReadFailure::notRegularFile, "not a regular file"},
                           {huge, files::ReadFailure::tooLarge, "file too large"}}) {
        SCOPED_TRACE(path);
        const std::string expected = "read(" + path.string() + "): " + reason;
        // The huge file is also a single line (of NULs) past the line limit.
        for (const auto& reader : {readWhole, readLines}) {
            const auto error = failureOf(reader, path);
            ASSERT_TRUE(error);
            EXPECT_EQ(error->code(), failure);
            EXPECT_EQ(std::string(error->what()), expected);
        }
    }

    // A missing file keeps its errno, so that callers can tell "absent".
    const auto missing = failureOf(readWhole, folder / "missing.json");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(std::string(missing->what()).rfind("open(" + (folder / "missing.json").string() + "): ", 0), 0u);
}

TEST(GuardedRead, ReadsUpToTheLimitAndLinesAcrossChunks) {
    testing::TemporaryDirectory folder;
    const fs::path file = folder / "five";
    testing::writeFile(file, "a\n\nbc");
    files::Stamp stamp;
    EXPECT_EQ(files::read(file, &stamp, 5), "a\n\nbc");
    EXPECT_EQ(stamp, files::stampOf(file));
    EXPECT_THROW((void)files::read(file, nullptr, 4), files::ReadError);
    EXPECT_EQ(linesOf(file), (std::vector<std::string>{"a", "", "bc"}));

    // A line longer than a read's chunk arrives whole; one past the line
    // limit is refused.
    const std::string longLine(200 * 1024, 'x');
    testing::writeFile(file, "first\n" + longLine + "\nlast\n");
    EXPECT_EQ(linesOf(file), (std::vector<std::string>{"first", longLine, "last"}));
    EXPECT_EQ(linesOf(file, longLine.size()).size(), 3u);
    EXPECT_THROW((void)linesOf(file, longLine.size() - 1), files::ReadError);
}

}  // namespace
}  // namespace holdenmere
