#include "core/apps/app_running.h"

#include <memory>
#include <mutex>

#include "core/support/clock.h"

namespace holdenmere {

LaunchAttempt AppRunning::launch(const std::string& path, const OpenOptions& options) {
    struct Answer {
        Signal arrived;
        std::mutex mutex;
        LaunchAttempt attempt;
    };
    auto answer = std::make_shared<Answer>();
    begin(path, options, [answer](LaunchAttempt attempt) {
        {
            std::lock_guard lock(answer->mutex);
            answer->attempt = std::move(attempt);
        }
        answer->arrived.raise();
    });
    answer->arrived.wait();
    std::lock_guard lock(answer->mutex);
    return answer->attempt;
}

}  // namespace holdenmere
