#include "tests/support/network_namespace.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include <gtest/gtest.h>

#include "core/support/child_process.h"

namespace holdenmere::testing {
namespace {

constexpr const char* kInnerMark = "HOLDENMERE_OWN_NETWORK_NAMESPACE";
// What the helper exits with when no namespace may be made here.
[[maybe_unused]] constexpr int kNotAllowed = 77;

std::string failure(const char* call, int error) {
    return std::string(call) + ": " + std::strerror(error);
}

}  // namespace

bool inOwnNetworkNamespace() {
    const char* mark = std::getenv(kInnerMark);
    return mark != nullptr && std::string_view(mark) == "1";
}

void runInOwnNetworkNamespace() {
#ifdef HOLDENMERE_NETWORK_NAMESPACE
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    ASSERT_NE(test, nullptr);
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    ASSERT_FALSE(error) << "read_symlink(/proc/self/exe): " << error.message();

    ChildProcessRequest request;
    request.executable = HOLDENMERE_NETWORK_NAMESPACE;
    request.arguments = {self.string(),
                         std::string("--gtest_filter=") + test->test_suite_name() + "." + test->name()};
    request.environment = environmentWith({std::string(kInnerMark) + "=1"});
    request.timeout = std::chrono::seconds(90);
    request.combineOutput = true;
    const auto result = runChildProcess(request);
    if (result.ending == ChildProcessResult::Ending::exited && result.status == kNotAllowed) {
        std::string reason = result.output;
        while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' ')) reason.pop_back();
        GTEST_SKIP() << "network namespaces are not allowed here: " << reason;
    }
    EXPECT_TRUE(result.succeeded()) << "in a network namespace of its own, the test ended with "
                                    << result.describe(request.timeout) << ":\n"
                                    << result.output;
#else
    GTEST_SKIP() << "network namespaces are not available on this system";
#endif
}

std::string setLoopbackUp(bool up) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return failure("socket(AF_INET)", errno);
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    std::string outcome;
    if (::ioctl(fd, SIOCGIFFLAGS, &request) != 0) {
        outcome = failure("ioctl(SIOCGIFFLAGS, lo)", errno);
    } else {
        if (up) {
            request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
        } else {
            request.ifr_flags = static_cast<short>(request.ifr_flags & ~IFF_UP);
        }
        if (::ioctl(fd, SIOCSIFFLAGS, &request) != 0) outcome = failure("ioctl(SIOCSIFFLAGS, lo)", errno);
    }
    ::close(fd);
    return outcome;
}

}  // namespace holdenmere::testing
