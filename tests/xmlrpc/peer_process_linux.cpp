// peer_process_linux.cpp - see the header for the contract.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/eventually.h"
#include "tests/xmlrpc/peer_process.h"

extern char** environ;

namespace pennywort::tests {
namespace {

sockaddr_in local_address(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

peer_process::peer_process(const std::vector<std::string>& command) {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::vector<char*> words;
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    if (posix_spawnp(&m_process, words[0], &actions, nullptr, words.data(), environ) != 0) {
        m_process = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    m_input = input[1];
    m_output = output[0];
}

peer_process::~peer_process() {
    close(m_input);
    close(m_output);
    if (m_process <= 0) return;
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
}

std::string peer_process::line() {
    std::string text;
    char c = 0;
    while (read(m_output, &c, 1) == 1 && c != '\n') text.push_back(c);
    return text;
}

int free_port() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = local_address(0);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    const bool is_bound = bind(socket, plain, size) == 0 && getsockname(socket, plain, &size) == 0;
    close(socket);
    return is_bound ? ntohs(address.sin_port) : 0;
}

bool is_listening(int port) {
    return eventually([&] {
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = local_address(port);
        const bool is_there =
            connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(socket);
        return is_there;
    });
}

}  // namespace pennywort::tests
