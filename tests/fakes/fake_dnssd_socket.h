// fake_dnssd_socket.h - the socket by which the fake DNS-SD library says that it has something to
// tell. Twins: fake_dnssd_socket_linux.cpp, fake_dnssd_socket_win.cpp.
#pragma once

namespace fake_dnssd {

// Negative when there is none.
int open_socket();
// Makes it readable, as often as it is called.
void signal(int socket);
// Takes one of these back.
void take_signal(int socket);
void close_socket(int socket);

}  // namespace fake_dnssd
