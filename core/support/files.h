#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

// File primitives shared by the stores and the scanners. Every failure is
// thrown as a std::system_error whose what() reads "call(path): reason".
namespace holdenmere::files {

// Throws std::system_error for errno `code`, described as "call(path): reason".
[[noreturn]] void throwErrno(int code, std::string_view call, const std::filesystem::path& path);

// Why a read was refused where errno has nothing to say.
enum class ReadFailure {
    notRegularFile = 1,  // a pipe, socket, device or folder stands at the path
    tooLarge,            // more bytes than the reader accepts
};
const std::error_category& readFailureCategory();
std::error_code make_error_code(ReadFailure failure);

// A failed read: its code is either an errno (generic category) or a
// ReadFailure, and what() reads "open(path): No such file or directory" or
// "read(path): not a regular file".
class ReadError : public std::system_error {
public:
    ReadError(std::error_code code, std::string_view call, const std::filesystem::path& path);
};

// What a reader accepts by default: property lists, settings, the history
// and the saved scans are a few kilobytes; anything this large is none of them.
inline constexpr std::size_t kReadLimit = 4 * 1024 * 1024;

// Which version of a file a reading saw: a file replaced by a rename is
// another file (device and inode), one written in place has another size or
// change time. Equal stamps mean the file was not changed in between.
struct Stamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    long long modifiedNanoseconds = 0;
    long long changedNanoseconds = 0;

    friend bool operator==(const Stamp&, const Stamp&) = default;
};

// Reads the whole file; the one way to read a file whose path comes from
// outside (a plist a job names, an app's Info.plist, the config). Only a
// regular file is read: the open never waits (a pipe nobody writes cannot
// block it), and what it opened is refused unless it is a regular file, as
// is a file of more than `limit` bytes, however it grows while being read.
// Throws ReadError. With `stamp`, it is set to the stamp of the file read.
std::string read(const std::filesystem::path& path, Stamp* stamp = nullptr, std::size_t limit = kReadLimit);

// Reads the file as `read` does, handing `line` each line without its line
// feed, so that only one line is held at a time: for logs that only grow. A
// line of more than `lineLimit` bytes is refused as tooLarge. Throws ReadError.
void forEachLine(const std::filesystem::path& path, const std::function<void(std::string_view)>& line,
                 std::size_t lineLimit = kReadLimit);

// The stamp of the file at `path` now; one with `exists` false when there is
// none, and nothing when it cannot be looked at.
[[nodiscard]] std::optional<Stamp> stampOf(const std::filesystem::path& path);

// Whether something (a file, a folder, a dangling link) exists at the path.
bool exists(const std::filesystem::path& path);

// Creates the folder and every missing folder above it; an existing folder is
// no failure, a file standing in the way is.
void createDirectories(const std::filesystem::path& folder);

// Replaces the file at `path` with `bytes` so that no reader ever sees a
// partial file: the bytes go to a temporary file in the same folder, are
// flushed to disk, and the temporary file is renamed over the target; the
// folder is flushed last. Missing parent folders are created. On failure the
// previous file is untouched and the temporary file is removed.
void writeAtomically(const std::filesystem::path& path, std::string_view bytes, mode_t mode = 0644);

// Writes `bytes` to a new file at `path` the way writeAtomically does, but
// never replaces anything: false, with nothing written, when something
// already exists there. The name appears only once the file is whole.
[[nodiscard]] bool createAtomically(const std::filesystem::path& path, std::string_view bytes, mode_t mode = 0644);

// Appends `bytes` to the end of the file, creating it (and missing parent
// folders) when absent. The file is opened for appending, so other
// processes appending at the same time (launchd writing the login agent's
// output into the same log) never overwrite these bytes, and small blocks
// land whole.
void append(const std::filesystem::path& path, std::string_view bytes, mode_t mode = 0644);

}  // namespace holdenmere::files

template <>
struct std::is_error_code_enum<holdenmere::files::ReadFailure> : std::true_type {};
