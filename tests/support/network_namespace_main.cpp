// Runs a program in a network namespace of its own (Linux), where the only
// interface is a loopback that starts down, so that a test can bring the
// network up under a program that is already waiting for it.
//
//   holdenmere_network_namespace PROGRAM [ARGUMENTS...]
//   holdenmere_network_namespace measure RUNS HOLDENMERE
//
// The second form is the benchmark of how soon a login pass notices the
// network: RUNS times, in a fresh namespace each, it serves the probe page
// on 127.0.0.1 (bound before the address exists), starts `HOLDENMERE --gate`
// with a 2 s poll interval in a home of its own, brings loopback up 0.7 s
// later, while the pass pauses after its first failed attempt, and prints
// how long after that the pass's next attempt connected; then the median.
//
// Exits kNotAllowed with the reason on standard error when the system will
// not make a namespace for this user (no privilege, no namespace support),
// so that the caller can say it was skipped rather than failed.
#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

constexpr int kUsage = 64;
constexpr int kNotAllowed = 77;
constexpr int kFailed = 71;
constexpr int kCouldNotRun = 127;

// Into a namespace of its own; the exit status to end with when that fails.
int enterOwnNamespace() {
    if (::unshare(CLONE_NEWNET) == 0) return 0;
    const int error = errno;
    std::fprintf(stderr, "unshare(CLONE_NEWNET): %s\n", std::strerror(error));
    return error == EPERM || error == EINVAL || error == ENOSYS ? kNotAllowed : kFailed;
}

[[noreturn]] void fail(const char* call) {
    std::fprintf(stderr, "%s: %s\n", call, std::strerror(errno));
    std::exit(kFailed);
}

bool bringLoopbackUp() {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool up = ::ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    up = up && ::ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    ::close(fd);
    return up;
}

// The probe page's socket on 127.0.0.1, bound while loopback has no address.
int listenOnLoopback(int* port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) fail("socket");
    const int on = 1;
    if (::setsockopt(fd, IPPROTO_IP, IP_FREEBIND, &on, sizeof on) != 0) fail("setsockopt(IP_FREEBIND)");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) fail("bind(127.0.0.1)");
    if (::listen(fd, 8) != 0) fail("listen");
    socklen_t length = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) fail("getsockname");
    *port = ntohs(address.sin_port);
    return fd;
}

// One measured pass, in the namespace this process has just entered: the
// milliseconds from loopback coming up to the pass's next connection.
double measureOnce(const std::string& holdenmere) {
    int port = 0;
    const int listener = listenOnLoopback(&port);

    char pattern[] = "/tmp/holdenmere-noticed.XXXXXX";
    if (::mkdtemp(pattern) == nullptr) fail("mkdtemp");
    const std::filesystem::path home = pattern;
    const auto support = home / "Library/Application Support/Holdenmere";
    std::filesystem::create_directories(support);
    std::ofstream(support / "config.json")
        << R"({"settings":{"probeURL":"http://127.0.0.1:)" << port
        << R"(/hotspot-detect.html","pollInterval":2,"maxAttempts":5,"launchAnywayOnTimeout":true,"isEnabled":true},"apps":[]})" << '\n';

    std::vector<std::string> environment = {"HOME=" + home.string(),
                                            "HOLDENMERE_HISTORY_PATH=" + (home / "history.json").string(),
                                            "HOLDENMERE_LOG_PATH=" + (home / "log").string(), "PATH=/usr/bin:/bin"};
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    std::string gate = "--gate";
    std::string program = holdenmere;
    char* argv[] = {program.data(), gate.data(), nullptr};

    posix_spawn_file_actions_t actions;
    if (::posix_spawn_file_actions_init(&actions) != 0) fail("posix_spawn_file_actions_init");
    if (::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0) != 0) {
        fail("posix_spawn_file_actions_addopen");
    }
    pid_t pass = 0;
    errno = ::posix_spawn(&pass, program.c_str(), &actions, nullptr, argv, envp.data());
    if (errno != 0) fail("posix_spawn");
    ::posix_spawn_file_actions_destroy(&actions);

    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    const auto upAt = std::chrono::steady_clock::now();
    if (!bringLoopbackUp()) fail("ioctl(SIOCSIFFLAGS, lo)");
    pollfd watched{listener, POLLIN, 0};
    double noticed = -1;
    if (::poll(&watched, 1, 5000) == 1) {
        noticed = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - upAt).count();
        const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) {
            char request[4096];
            [[maybe_unused]] const ssize_t got = ::recv(client, request, sizeof request, 0);
            const char answer[] = "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
            [[maybe_unused]] const ssize_t sent = ::send(client, answer, sizeof answer - 1, MSG_NOSIGNAL);
            ::close(client);
        }
    }
    int status = 0;
    ::waitpid(pass, &status, 0);
    ::close(listener);
    std::filesystem::remove_all(home);
    return noticed;
}

int measure(int runs, const std::string& holdenmere) {
    std::vector<double> figures;
    for (int run = 0; run < runs; ++run) {
        int pipeFds[2];
        if (::pipe2(pipeFds, O_CLOEXEC) != 0) fail("pipe2");
        const pid_t child = ::fork();
        if (child < 0) fail("fork");
        if (child == 0) {
            ::close(pipeFds[0]);
            if (const int refused = enterOwnNamespace(); refused != 0) std::_Exit(refused);
            const double noticed = measureOnce(holdenmere);
            const std::string text = std::to_string(noticed);
            [[maybe_unused]] const ssize_t written = ::write(pipeFds[1], text.data(), text.size());
            std::_Exit(0);
        }
        ::close(pipeFds[1]);
        std::string text;
        char buffer[64];
        for (ssize_t got; (got = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;) text.append(buffer, got);
        ::close(pipeFds[0]);
        int status = 0;
        ::waitpid(child, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
        const double noticed = std::strtod(text.c_str(), nullptr);
        if (noticed < 0) {
            std::printf("run %d: no attempt within 5 s of loopback coming up\n", run + 1);
            continue;
        }
        std::printf("run %d: next attempt %.1f ms after loopback came up\n", run + 1, noticed);
        figures.push_back(noticed);
    }
    if (figures.empty()) return kFailed;
    std::sort(figures.begin(), figures.end());
    const std::size_t middle = figures.size() / 2;
    const double median =
        figures.size() % 2 != 0 ? figures[middle] : (figures[middle - 1] + figures[middle]) / 2;
    std::printf("network noticed: median %.1f ms, at most %.1f ms (target <= 100 ms)\n", median, figures.back());
    return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc >= 2 && std::string(argv[1]) == "measure") {
        if (argc != 4 || std::atoi(argv[2]) < 1) {
            std::fprintf(stderr, "usage: %s measure RUNS HOLDENMERE\n", argv[0]);
            return kUsage;
        }
        return measure(std::atoi(argv[2]), argv[3]);
    }
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s PROGRAM [ARGUMENTS...]\n       %s measure RUNS HOLDENMERE\n", argv[0],
                     argv[0]);
        return kUsage;
    }
    if (const int refused = enterOwnNamespace(); refused != 0) return refused;
    ::execv(argv[1], argv + 1);
    std::fprintf(stderr, "execv(%s): %s\n", argv[1], std::strerror(errno));
    return kCouldNotRun;
}
