// --audit reads the run log from its file a line at a time (files::forEachLine),
// never holding it whole. Whatever the bytes, the file must read exactly as
// the same bytes read from memory.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include "core/config/last_login_conflicts.h"

namespace {

const std::filesystem::path& logFile();

void removeLogFile() {
    std::error_code ignored;
    std::filesystem::remove(logFile(), ignored);
}

// One file per fuzzing process, rewritten for every input and removed at
// exit. The path is never destroyed, so the exit handler can still use it.
const std::filesystem::path& logFile() {
    static const std::filesystem::path* const path = [] {
        auto* file = new std::filesystem::path(std::filesystem::temp_directory_path() /
                                               ("holdenmere-fuzz-run-log-" + std::to_string(::getpid()) + ".log"));
        std::atexit(removeLogFile);
        return file;
    }();
    return *path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    {
        std::ofstream stream(logFile(), std::ios::binary | std::ios::trunc);
        stream.write(text.data(), static_cast<std::streamsize>(text.size()));
        if (!stream.flush()) std::abort();
    }
    if (holdenmere::LastLoginConflicts::read(logFile()) != holdenmere::LastLoginConflicts::read(text)) std::abort();
    return 0;
}
