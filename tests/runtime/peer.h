// peer.h - the web server that pages of the tests are fetched from: peer/peer.py as a program of
// its own.
#pragma once

#include <string>
#include <string_view>

#include "machine.h"

namespace pennywort::runtime_test {

class peer {
public:
    peer();

    // Address of a path, by the name or the number of this machine: two origins, one server.
    std::string url(std::string_view path) const;
    std::string url_of_other_origin(std::string_view path) const;
    // Address of a page with this text.
    std::string html(std::string_view text) const;
    std::string html_of_other_origin(std::string_view text) const;
    // Address that redirects there.
    std::string redirect(std::string_view target) const;

private:
    companion m_program;
    std::string m_port;
};

}  // namespace pennywort::runtime_test
