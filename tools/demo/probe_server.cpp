// The demo's stand-in for the captive-portal page: binds a loopback port at
// once and prints it, but only starts listening after --after seconds, so a
// login pass first sees "cannot connect to host" and then "network reachable".
// Answers 204 to every request and quits by itself after --for seconds.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

int main(int argc, char** argv) {
    double after = 4;
    double lifetime = 90;
    for (int index = 1; index + 1 < argc; index += 2) {
        if (std::strcmp(argv[index], "--after") == 0) after = std::atof(argv[index + 1]);
        if (std::strcmp(argv[index], "--for") == 0) lifetime = std::atof(argv[index + 1]);
    }
    int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (listener < 0 || ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        std::perror("demo probe server: bind");
        return 1;
    }
    socklen_t length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);

    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(after));
    ::listen(listener, 16);
    while (std::chrono::steady_clock::now() - start < std::chrono::duration<double>(lifetime)) {
        pollfd watched{listener, POLLIN, 0};
        if (::poll(&watched, 1, 100) <= 0) continue;
        int client = ::accept(listener, nullptr, nullptr);
        if (client < 0) continue;
        char buffer[4096];
        pollfd readable{client, POLLIN, 0};
        if (::poll(&readable, 1, 1000) > 0) (void)::read(client, buffer, sizeof buffer);
        const std::string answer = "HTTP/1.1 204 No Content\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
        (void)::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        ::close(client);
    }
    return 0;
}
