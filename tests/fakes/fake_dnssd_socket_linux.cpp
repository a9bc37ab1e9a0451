// fake_dnssd_socket_linux.cpp - Linux half of fake_dnssd_socket.h. Windows half:
// fake_dnssd_socket_win.cpp.
#include "tests/fakes/fake_dnssd_socket.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace fake_dnssd {

int open_socket() { return ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC | EFD_SEMAPHORE); }

void signal(int socket) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(socket, &one, sizeof one);
}

void take_signal(int socket) {
    std::uint64_t one = 0;
    [[maybe_unused]] const auto read = ::read(socket, &one, sizeof one);
}

void close_socket(int socket) { ::close(socket); }

}  // namespace fake_dnssd
