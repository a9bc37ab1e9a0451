// peer.cpp - see the header for the contract.
#include "peer.h"

#include <algorithm>
#include <stdexcept>

#include "loam/base64.h"

namespace pennywort::runtime_test {

namespace {

// Base64 in the alphabet that a path may hold, without padding.
std::string path_safe(std::string_view bytes) {
    const int length = static_cast<int>(bytes.size());
    std::string text(static_cast<std::size_t>(Base64encode_len(length)), '\0');
    const int written = Base64encode(text.data(), bytes.data(), length);
    text.resize(static_cast<std::size_t>(written) - 1);
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    text.resize(std::min(text.size(), text.find('=')));
    return text;
}

}  // namespace

peer::peer() : m_program({"python3", PEER_PROGRAM}) {
    const std::string line = m_program.read_until("port ");
    if (line.empty()) throw std::runtime_error("the peer, " PEER_PROGRAM ", did not start");
    m_port = line.substr(5);
}

std::string peer::url(std::string_view path) const {
    return "http://127.0.0.1:" + m_port + std::string(path);
}
std::string peer::url_of_other_origin(std::string_view path) const {
    return "http://localhost:" + m_port + std::string(path);
}
std::string peer::html(std::string_view text) const { return url("/html/" + path_safe(text)); }
std::string peer::html_of_other_origin(std::string_view text) const {
    return url_of_other_origin("/html/" + path_safe(text));
}
std::string peer::redirect(std::string_view target) const {
    return url("/redirect/" + path_safe(target));
}

}  // namespace pennywort::runtime_test
