#pragma once

#include <functional>
#include <mutex>
#include <vector>

namespace holdenmere {

// Tells the launches that one caller began that it no longer waits for
// them: each launch still confirming that its app stays hidden ends at once,
// as cancelled, instead of watching on until its checks run out. Shared
// between the caller and the launches (through OpenOptions).
class LaunchCancellation {
public:
    // Runs every handler once; later calls do nothing.
    void cancel();
    bool isCancelled() const;
    // Runs `handler` when cancelled: at once, on this thread, when that has
    // happened already.
    void whenCancelled(std::function<void()> handler);

private:
    mutable std::mutex mutex_;
    bool cancelled_ = false;
    std::vector<std::function<void()>> handlers_;
};

}  // namespace holdenmere
