// evhttp_server.cpp - libevent's HTTP server of the comparison. Prints its port, serves until it is
// ended by a signal.
#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>

#include "answer_text.h"

namespace {

void answer(evhttp_request* request, void*) {
    evbuffer* const body = evhttp_request_get_output_buffer(request);
    evbuffer_add_reference(body, answer_text().data(), answer_text().size(), nullptr, nullptr);
    evhttp_add_header(evhttp_request_get_output_headers(request), "Content-Type", "text/plain");
    evhttp_send_reply(request, HTTP_OK, "OK", nullptr);
}

int port_of(evutil_socket_t socket) {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
}

}  // namespace

int main() {
    event_base* const base = event_base_new();
    evhttp* const server = evhttp_new(base);
    evhttp_set_gencb(server, &answer, nullptr);
    evhttp_bound_socket* const bound = evhttp_bind_socket_with_handle(server, "127.0.0.1", 0);
    if (bound == nullptr) return 1;
    // Its own backlog of 128 has clients try again after a second.
    listen(evhttp_bound_socket_get_fd(bound), 1024);
    std::printf("%d\n", port_of(evhttp_bound_socket_get_fd(bound)));
    std::fflush(stdout);
    event_base_dispatch(base);
}
