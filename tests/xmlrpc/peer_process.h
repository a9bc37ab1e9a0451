// peer_process.h - a program that a test talks to, which ends with the test. Linux only:
// peer_process_linux.cpp.
#pragma once

#include <string>
#include <vector>

namespace pennywort::tests {

class peer_process {
public:
    explicit peer_process(const std::vector<std::string>& command);
    ~peer_process();
    peer_process(const peer_process&) = delete;
    peer_process& operator=(const peer_process&) = delete;

    // The next line of its output, without its end; empty when it has ended.
    std::string line();

private:
    int m_process = -1;
    int m_input = -1;
    int m_output = -1;
};

}  // namespace pennywort::tests
