#pragma once

#include <filesystem>
#include <mutex>

namespace holdenmere {

// Serialises every change of macOS startup state and of the ledger across
// processes (the login pass, the command-line modes and the desktop app) with
// an advisory flock on a file beside the configuration file. Processes that
// use the same configuration path share one lock.
class StartupMutationLock {
public:
    // Owns the open descriptor of the lock file: while it exists and has not
    // been released, its holder owns the lock. Release may come from any
    // thread; destroying a lease releases it.
    class [[nodiscard]] Lease {
    public:
        explicit Lease(int fd) : fd_(fd) {}
        Lease(Lease&& other) noexcept;
        Lease& operator=(Lease&& other) noexcept;
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        ~Lease() { release(); }

        // Gives the lock up; only the first call has an effect.
        void release();
        bool isHeld() const;

    private:
        mutable std::mutex guard_;
        int fd_ = -1;
    };

    // The lock file is the configuration path with ".startup-lock" appended.
    explicit StartupMutationLock(const std::filesystem::path& configURL);

    const std::filesystem::path& url() const { return url_; }

    // With `wait` the call blocks until the lock is free; without it a lock
    // held elsewhere fails at once with EWOULDBLOCK. Failures throw
    // std::system_error carrying the failing call's errno.
    Lease acquire(bool wait) const;

private:
    std::filesystem::path url_;
};

}  // namespace holdenmere
