// peer_process_linux.cpp - see the header for the contract.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/xmlrpc/peer_process.h"

extern char** environ;

namespace pennywort::tests {

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

}  // namespace pennywort::tests
