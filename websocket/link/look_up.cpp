// websocket/link/look_up.cpp - see the header for the contract.
#include "websocket/link/look_up.h"

#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "core/run/guarded.h"

namespace pennywort::websocket {

namespace {

namespace net = boost::asio;

found_addresses ask_system(const std::string& name, const std::string& port) {
    net::io_context unused;
    net::ip::tcp::resolver resolver(unused);
    found_addresses found;
    found.addresses = resolver.resolve(name, port, resolver.numeric_service, found.error);
    return found;
}

// What the thread and the one who waits share.
struct question {
    std::mutex mutex;
    std::condition_variable changed;
    bool is_answered = false;
    found_addresses answer;

    void put(found_addresses found) {
        const std::lock_guard lock(mutex);
        answer = std::move(found);
        is_answered = true;
        changed.notify_all();
    }
};

}  // namespace

name_resolver& current_name_resolver() {
    static name_resolver resolver = &ask_system;
    return resolver;
}

found_addresses look_up_until(std::chrono::steady_clock::time_point end, const std::string& name,
                              const std::string& port) {
    const auto asked = std::make_shared<question>();
    std::thread([asked, ask = current_name_resolver(), name, port] {
        found_addresses found;
        found.error = net::error::no_memory;
        run::guarded("cWebSocket", "looking up a name", [&] { found = ask(name, port); });
        asked->put(std::move(found));
    }).detach();
    std::unique_lock lock(asked->mutex);
    asked->changed.wait_until(lock, end, [&] { return asked->is_answered; });
    if (!asked->is_answered) asked->answer.error = net::error::timed_out;
    return asked->answer;
}

}  // namespace pennywort::websocket
