// host/ws/page_feed.cpp - see the header for the contract.
#include "host/ws/page_feed.h"

#include <algorithm>

#include "core/limits.h"
#include "host/app/json.h"
#include "host/app/option_values.h"
#include "host/render/page_scripts.h"
#include "host/ws/ws_feed.h"

namespace pennywort::host {

namespace {

using std::chrono::milliseconds;

std::string seconds_of(milliseconds time) { return std::to_string(time.count() / 1000) + " s"; }

}  // namespace

std::string take_feed(const std::string& url, const std::string& on_message,
                      feed_options& options) {
    if (url.empty() && on_message.empty()) return {};
    if (url.empty()) return "--on-message needs a feed: give --feed";
    if (on_message.empty()) return "--feed needs --on-message: what to do with a message";
    const std::string wrong = fault_of_feed_url(url);
    if (!wrong.empty()) return "--feed " + wrong;
    options.url = url;
    options.script_name = "--on-message";
    options.script = on_message;
    if (on_message.front() != '@') return {};
    options.script_name = on_message.substr(1);
    return read_text_file(options.script_name, options.script)
               ? std::string()
               : "--on-message " + options.script_name + " cannot be read";
}

// In one line in front of the script, whose own lines keep their numbers.
std::string script_for_message(const feed_options& options, const std::string& message) {
    return "const message = " + json_text(message) + ";" + run_of(options.script);
}

page_feed::page_feed(feed_options options, feed_kind kind, std::shared_ptr<cWebSocket> socket,
                     teller tell)
    : m_options(std::move(options)),
      m_kind(kind),
      m_tell(std::move(tell)),
      m_self(std::make_shared<page_feed*>(this)),
      m_inbox(std::make_shared<inbox>()),
      m_socket(std::move(socket)),
      m_wait(k_first_feed_wait) {
    listen();
}

page_feed::~page_feed() {
    *m_self = nullptr;
    m_socket->Close();
}

void page_feed::listen() {
    m_socket->SetOpenedHandler([inbox = m_inbox](const std::shared_ptr<cWebSocket>&) {
        inbox->happened(news::opened, {});
    });
    m_socket->SetMessageHandler([inbox = m_inbox](const char* text) { inbox->received(text); });
    m_socket->SetFaultHandler([inbox = m_inbox](const char* why) { inbox->keep_why(why); });
    m_socket->SetErrorHandler([inbox = m_inbox](cWebSocket::Error error) {
        inbox->happened(news::lost, words_of(error, inbox->take_why()));
    });
    m_socket->SetClosedHandler(
        [inbox = m_inbox](std::optional<cWebSocket::Error> error, bool was_clean) {
            inbox->happened(was_clean ? news::closed : news::lost,
                            words_of_close(error, was_clean, inbox->take_why()));
        });
}

void page_feed::open() {
    m_socket->Open(m_options.url.c_str(), double(m_options.timeout.count()) / 1000);
}

void page_feed::inbox::happened(news what, std::string words) {
    const std::lock_guard lock(m_mutex);
    m_news.emplace_back(what, std::move(words));
}

void page_feed::inbox::keep_why(std::string why) {
    const std::lock_guard lock(m_mutex);
    m_why.swap(why);
}

std::string page_feed::inbox::take_why() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_why, {});
}

// A page wants to know how things stand now, so the oldest message goes first.
void page_feed::inbox::received(std::string message) {
    const std::lock_guard lock(m_mutex);
    m_message_bytes += message.size();
    m_messages.push_back(std::move(message));
    while (m_messages.size() > k_max_feed_messages || m_message_bytes > k_max_feed_bytes) {
        m_message_bytes -= m_messages.front().size();
        m_messages.pop_front();
        ++m_dropped;
    }
}

std::deque<std::pair<page_feed::news, std::string>> page_feed::inbox::take_news() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_news, {});
}

bool page_feed::inbox::take_message(std::string& message) {
    const std::lock_guard lock(m_mutex);
    if (m_messages.empty()) return false;
    message = std::move(m_messages.front());
    m_messages.pop_front();
    m_message_bytes -= message.size();
    return true;
}

std::uint64_t page_feed::inbox::take_dropped() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_dropped, 0);
}

void page_feed::step(time_point now, bool takes_messages, const sender& send) {
    take_news(now);
    tell_dropped();
    if (m_open_at != time_point() && now >= m_open_at) {
        m_open_at = {};
        open();
    }
    if (!takes_messages) {
        m_unanswered = 0;
    } else if (m_has_opened) {
        hand_over(now, send);
    }
}

void page_feed::take_news(time_point now) {
    for (const auto& [what, words] : m_inbox->take_news()) {
        if (what != news::opened) {
            ended(what, words, now);
            continue;
        }
        m_has_opened = true;
        m_wait = k_first_feed_wait;
        tell("feed " + m_options.url + ": opened");
    }
}

void page_feed::ended(news what, const std::string& words, time_point now) {
    const std::string line = "feed " + m_options.url + ": " + words;
    if (m_kind == feed_kind::once) {
        if (what == news::closed && m_has_opened) return tell(line);
        if (m_failure.empty()) m_failure = line;
        return;
    }
    // What ends one attempt may be told twice.
    if (m_open_at != time_point()) return;
    tell(line + "; next attempt in " + seconds_of(m_wait));
    m_open_at = now + m_wait;
    m_wait = std::min(m_wait * 2, k_longest_feed_wait);
}

void page_feed::hand_over(time_point now, const sender& send) {
    if (!m_is_checked) check_script(send);
    if (m_unanswered > 0 && now - m_last_handed > k_max_message_patience) m_unanswered = 0;
    std::string message;
    while (m_unanswered < k_max_unanswered_messages && !has_failed() &&
           m_inbox->take_message(message)) {
        if (m_is_no_script) continue;
        const auto hear = [self = m_self](const std::string& answer) {
            if (*self != nullptr) (*self)->answered(answer);
        };
        if (!send(script_for_message(m_options, message), hear)) return;
        ++m_unanswered;
        m_last_handed = now;
    }
}

// A page returns nothing for what is no JavaScript.
void page_feed::check_script(const sender& send) {
    m_is_checked = send(parse_check(m_options.script), [self = m_self](const std::string& answer) {
        if (*self != nullptr) (*self)->checked(answer);
    });
}

// A page whose policy forbids the question leaves it open.
void page_feed::checked(const std::string& answer) {
    if (answer == "blocked") return;
    const std::string fault =
        parse_fault(m_options.script_name, line_count(m_options.script), answer);
    if (fault.empty()) return;
    m_is_no_script = true;
    if (m_kind == feed_kind::once) {
        m_failure = fault;
    } else {
        m_tell(saying::script_error, fault);
    }
}

void page_feed::answered(const std::string& answer) {
    if (m_unanswered > 0) --m_unanswered;
    std::string thrown;
    if (is_answer(answer, "throws", thrown)) {
        m_tell(saying::script_error, thrown_text(m_options.script_name, thrown));
    }
}

void page_feed::tell_dropped() {
    const std::uint64_t dropped = m_inbox->take_dropped();
    if (dropped == 0) return;
    tell("feed " + m_options.url + ": " + std::to_string(dropped) +
         " messages dropped: the page does not keep up");
}

}  // namespace pennywort::host
