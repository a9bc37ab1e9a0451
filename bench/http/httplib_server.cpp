// httplib_server.cpp - cpp-httplib of the comparison, with a thread for each connection, as many as
// the argument says. Prints its port, serves until it is ended by a signal.
#include <httplib.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <limits>

#include "answer_text.h"

int main(int argc, char** argv) {
    httplib::Server server;
    const int threads = argc > 1 ? std::atoi(argv[1]) : 8;
    server.new_task_queue = [threads] {
        return new httplib::ThreadPool(static_cast<std::size_t>(threads));
    };
    server.set_keep_alive_max_count(std::numeric_limits<int>::max());
    server.set_tcp_nodelay(true);
    server.Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(answer_text(), "text/plain");
    });
    int listener = -1;
    server.set_socket_options([&](int socket) { listener = socket; });
    const int port = server.bind_to_any_port("127.0.0.1");
    // Its own backlog of 5 has clients try again after a second.
    listen(listener, 1024);
    std::printf("%d\n", port);
    std::fflush(stdout);
    server.listen_after_bind();
}
