// page_feed.h - hands each message of a WebSocket to a page, in their order: runs the user's script
// there with the message in its variable `message`.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "core/run/clock.h"
#include "websocket.h"

namespace pennywort::host {

struct feed_options {
    std::string url;          // no feed if empty
    std::string script;       // JavaScript text
    std::string script_name;  // for messages
    std::chrono::milliseconds timeout{30'000};
};

// Takes both options: the URL, and JavaScript or "@" and the name of a file with it. Returns what
// is wrong with them, in one line; an empty text if nothing is.
std::string take_feed(const std::string& url, const std::string& on_message, feed_options& options);

// What the script of `options` becomes for one message: the body of a function.
std::string script_for_message(const feed_options& options, const std::string& message);

enum class feed_kind {
    once,     // a feed that cannot be had, or that is lost, has failed
    for_ever  // it is opened again and again
};

// For the display thread; the socket's events come from its own.
class page_feed {
public:
    using time_point = run::monotonic_clock::time;
    // Runs the body of a function in the page. What that returns comes on the display thread, later
    // or never. False if there is no page.
    using sender = std::function<bool(const std::string& body,
                                      std::function<void(const std::string& answer)> answered)>;
    // Hears what happens, one line at a time.
    enum class saying { connection, script_error };
    using teller = std::function<void(saying what, const std::string& line)>;

    // `socket` must not be null; make_feed makes one.
    page_feed(feed_options options, feed_kind kind, std::shared_ptr<cWebSocket> socket,
              teller tell);
    ~page_feed();
    page_feed(const page_feed&) = delete;
    page_feed& operator=(const page_feed&) = delete;

    void open();
    // Does what is due. Call it often. `takes_messages` is false while there is no page that could
    // take one: messages wait for it then.
    void step(time_point now, bool takes_messages, const sender& send);

    // Whether it has been open once.
    bool has_opened() const { return m_has_opened; }
    bool has_failed() const { return !m_failure.empty(); }
    // Why, in one line.
    const std::string& failure() const { return m_failure; }

private:
    enum class news { opened, lost, closed };

    // What has come from the socket's thread. Its handlers hold it, since they may outlive the
    // feed.
    class inbox {
    public:
        void happened(news what, std::string words);
        void keep_why(std::string why);
        std::string take_why();
        void received(std::string message);
        std::deque<std::pair<news, std::string>> take_news();
        bool take_message(std::string& message);
        std::uint64_t take_dropped();

    private:
        std::mutex m_mutex;
        std::string m_why;
        std::deque<std::pair<news, std::string>> m_news;
        std::deque<std::string> m_messages;
        std::size_t m_message_bytes = 0;
        std::uint64_t m_dropped = 0;
    };

    void listen();
    void take_news(time_point now);
    void ended(news what, const std::string& words, time_point now);
    void hand_over(time_point now, const sender& send);
    void check_script(const sender& send);
    void checked(const std::string& answer);
    void answered(const std::string& answer);
    void tell_dropped();
    void tell(const std::string& words) { m_tell(saying::connection, words); }

    const feed_options m_options;
    const feed_kind m_kind;
    const teller m_tell;
    // How an answer finds the feed, which may be gone by then.
    const std::shared_ptr<page_feed*> m_self;
    const std::shared_ptr<inbox> m_inbox;
    const std::shared_ptr<cWebSocket> m_socket;

    std::size_t m_unanswered = 0;
    time_point m_last_handed{};
    bool m_has_opened = false;
    bool m_is_checked = false;
    bool m_is_no_script = false;
    std::chrono::milliseconds m_wait;
    time_point m_open_at{};  // when it is opened again; zero if it is not to be
    std::string m_failure;
};

}  // namespace pennywort::host
