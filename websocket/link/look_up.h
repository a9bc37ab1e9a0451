// look_up.h - the addresses of a name, within a time: the system's resolver knows none.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/error.hpp>
#include <chrono>
#include <functional>
#include <string>

namespace pennywort::websocket {

struct found_addresses {
    boost::system::error_code error;
    boost::asio::ip::tcp::resolver::results_type addresses;
};

using name_resolver =
    std::function<found_addresses(const std::string& name, const std::string& port)>;

// The system's, unless a test has put something else there. Not locked.
name_resolver& current_name_resolver();

// Asks it on a thread of its own, and waits until `end` at most: then the error is timed_out, and
// the thread ends by itself when the resolver has. Throws without a thread.
found_addresses look_up_until(std::chrono::steady_clock::time_point end, const std::string& name,
                              const std::string& port);

}  // namespace pennywort::websocket
