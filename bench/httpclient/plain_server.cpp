// plain_server.cpp - a server that costs next to nothing, so that what is measured is its client. A
// thread for each connection.
//
// usage: http_client_bench_server
//
// Prints its port and serves until its standard input ends: "/large" is 1 GiB, everything else 1
// KiB.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

namespace {

constexpr std::size_t k_large = std::size_t(1) << 30;
constexpr std::size_t k_step = 1 << 18;

std::string answer_of(std::size_t length) {
    return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " +
           std::to_string(length) + "\r\n\r\n";
}

bool send_all(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

std::size_t body_length(std::string_view head) {
    const std::size_t at = head.find("Content-Length: ");
    return at == head.npos ? 0 : std::strtoul(head.data() + at + 16, nullptr, 10);
}

bool answer(int socket, std::string_view head) {
    static const std::string k_small = answer_of(1024) + std::string(1024, 'x');
    if (head.find(" /large ") == head.npos) return send_all(socket, k_small);
    static const std::string k_piece(k_step, 'x');
    bool is_sent = send_all(socket, answer_of(k_large));
    for (std::size_t sent = 0; is_sent && sent < k_large; sent += k_step) {
        is_sent = send_all(socket, k_piece);
    }
    return is_sent;
}

void serve(int socket) {
    std::string received;
    char bytes[1 << 16];
    for (;;) {
        const std::size_t end = received.find("\r\n\r\n");
        const std::size_t needed =
            end == received.npos ? received.npos : end + 4 + body_length(received);
        if (needed != received.npos && received.size() >= needed) {
            if (!answer(socket, std::string_view(received).substr(0, end + 4))) break;
            received.erase(0, needed);
            continue;
        }
        const ssize_t count = ::recv(socket, bytes, sizeof bytes, 0);
        if (count <= 0) break;
        received.append(bytes, static_cast<std::size_t>(count));
    }
    ::close(socket);
}

void accept_all(int listener) {
    for (;;) {
        const int accepted = ::accept(listener, nullptr, nullptr);
        if (accepted < 0) return;
        const int yes = 1;
        ::setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        std::thread(serve, accepted).detach();
    }
}

}  // namespace

int main() {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::listen(listener, 128) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        std::perror("http_client_bench_server");
        return 1;
    }
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    std::thread(accept_all, listener).detach();
    while (std::getchar() != EOF) {
    }
    std::_Exit(0);
}
