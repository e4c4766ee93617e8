#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

// File primitives shared by the stores. Every failure is thrown as a
// std::system_error carrying errno, whose what() reads "call(path): reason".
namespace holdenmere::files {

// Throws std::system_error for errno `code`, described as "call(path): reason".
[[noreturn]] void throwErrno(int code, std::string_view call, const std::filesystem::path& path);

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

// Reads the whole file. A missing file, a folder or an unreadable file throws.
// With `stamp`, it is set to the stamp of the file that was read.
std::string read(const std::filesystem::path& path, Stamp* stamp = nullptr);

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
