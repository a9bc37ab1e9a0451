// host/render/page_run.cpp - see the header for the contract.
#include "host/render/page_run.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "core/limits.h"
#include "host/render/page_scripts.h"

namespace pennywort::host {

namespace {

using namespace std::chrono_literals;

constexpr auto k_poll_interval = 40ms;
// A page that loads another one loses the question. The next one is asked after this time.
constexpr auto k_question_patience = 1000ms;
// Other questions are answered in much less than this time.
constexpr auto k_doubt_after = 300ms;
constexpr auto k_alive_interval = 1000ms;

// The first picture may have been under way already when it was asked for.
constexpr int k_pictures_awaited = 2;

std::string in_seconds(std::chrono::milliseconds time) {
    const auto tenths = time.count() / 100;
    std::string text = std::to_string(tenths / 10);
    if (tenths % 10 != 0) text += "." + std::to_string(tenths % 10);
    return text + " s";
}

// What the browser's own names of failures mean, for the ones that a user meets.
constexpr std::pair<std::string_view, const char*> k_meanings[] = {
    {"ERR_HTTP_RESPONSE_CODE_FAILURE", "the server answered with an error and nothing else"},
    {"ERR_EMPTY_RESPONSE", "the server closed the connection without an answer"},
    {"ERR_NAME_NOT_RESOLVED", "there is no such host"},
    {"ERR_CONNECTION_REFUSED", "no server listens there"},
    {"ERR_FILE_NOT_FOUND", "there is no such file"},
    {"ERR_TOO_MANY_REDIRECTS", "the server redirects without end"},
    {"ERR_SSL_PROTOCOL_ERROR", "the server does not speak https there"},
    {"ERR_UNKNOWN_URL_SCHEME", "browsers know no address that begins so"},
    {"ERR_UNSAFE_PORT", "browsers do not go to that port"},
};

std::string in_words(const std::string& error) {
    for (const auto& [name, meaning] : k_meanings) {
        if (error.ends_with(name)) return std::string(meaning) + " (" + error + ")";
    }
    return error;
}

// The runtime spells a URL its own way: a slash behind the host, no fragment when it failed.
std::string_view without_fragment(std::string_view url) {
    url = url.substr(0, url.find('#'));
    if (!url.empty() && url.back() == '/') url.remove_suffix(1);
    return url;
}

}  // namespace

// Shared with the answer, which may come after the run has gone or has asked something else.
struct page_run::question {
    bool answered = false;
    std::string answer;
};

page_run::page_run(page_port& port, page_request request, time_point now)
    : m_port(port), m_request(std::move(request)), m_deadline(now + m_request.timeout) {}

page_run::~page_run() = default;

void page_run::enter(state next) {
    m_state = next;
    m_question.reset();
    m_doubted.reset();
    m_doubt.reset();
    m_is_parsing = false;
    m_answered = {};
    m_pictures_seen = 0;
    if (next == state::painting) ask_for_picture();
}

void page_run::ask_for_picture() {
    m_pictures_before = m_port.pictures();
    m_port.repaint();
}

void page_run::fail(const std::string& text) {
    enter(state::failed);
    m_failure = text;
}

void page_run::page_loaded() {
    m_moves = false;
    const bool is_preparing = m_state < state::ready;
    if (is_preparing) enter(state::settling);
}

void page_run::page_failed(const std::string& url, const std::string& error) {
    if (m_state < state::ended)
        fail("the page could not be loaded: " + url + ": " + in_words(error));
}

void page_run::page_lost() {
    if (m_state < state::ended) fail(m_request.url + ": the page's process has ended");
}

void page_run::page_closed() {
    if (m_state < state::ended) fail(m_request.url + ": the page has closed itself (window.close)");
}

void page_run::load_failed(const std::string& url, const std::string& error) {
    const bool is_this_page = without_fragment(url) == without_fragment(m_request.url);
    if (m_state == state::loading && is_this_page) page_failed(url, error);
}

std::function<void(std::string)> page_run::taker_of(std::shared_ptr<question> sent) {
    return [sent = std::move(sent)](std::string text) {
        sent->answered = true;
        sent->answer = std::move(text);
    };
}

std::shared_ptr<page_run::question> page_run::send(const std::string& body) {
    auto sent = std::make_shared<question>();
    m_port.run_script(body, taker_of(sent));
    return sent;
}

void page_run::ask(const std::string& body, time_point now) {
    m_asked = now;
    m_question = send(body);
}

void page_run::run_users_script(time_point now) {
    m_asked = now;
    auto sent = std::make_shared<question>();
    m_question = sent;
    m_port.run_users_script(run_of(m_request.script), taker_of(sent));
}

void page_run::ask_next_frame(const std::string& body, time_point now) {
    m_asked = now;
    auto sent = std::make_shared<question>();
    m_question = sent;
    m_port.ask_next_frame("(() => {" + body + "})()", taker_of(sent));
}

// Whether it is time for a question: none is open, or the open one has been lost.
bool page_run::ask_again(time_point now, std::chrono::milliseconds patience) {
    if (m_question) return now - m_asked >= patience;
    return m_answered == time_point{} || now - m_answered >= k_poll_interval;
}

bool page_run::take_answer(std::string& text) {
    if (!m_question || !m_question->answered) return false;
    text = std::move(m_question->answer);
    m_question.reset();
    return true;
}

void page_run::step(time_point now) {
    if (m_state < state::ready && now >= m_deadline) {
        if (!hears_of_start(now)) fail(timeout_text());
        return;
    }
    switch (m_state) {
        case state::settling:
            return step_settling(now);
        case state::scripting:
            return step_scripting(now);
        case state::waiting:
            return step_waiting(now);
        case state::drawing:
            return step_drawing(now);
        case state::painting:
            return step_painting();
        case state::ready:
        case state::ending:
            if (!m_request.stands_still) step_living(now);
            return;
        case state::loading:
        case state::ended:
        case state::failed:
            return;
    }
}

bool page_run::has_condition_at_start() const {
    return !m_request.start.empty() && m_request.start != "load" && m_request.start != "dom";
}

// Whether it may still be told why the start has not become true.
bool page_run::hears_of_start(time_point now) {
    const bool is_asked = m_request.stands_still && has_condition_at_start();
    if (m_state != state::loading || !is_asked) return false;
    if (!m_question) {
        m_asked = now;
        auto sent = std::make_shared<question>();
        m_question = sent;
        m_port.ask_fault(m_request.start, taker_of(sent));
    }
    return !take_answer(m_thrown) && now - m_asked < k_question_patience;
}

std::string page_run::probe(const std::string& condition) const {
    const bool waits_for_all = m_request.start.empty() || m_request.start == "load";
    return waits_for_all ? readiness_probe(condition) : begun_probe(condition);
}

void page_run::step_settling(time_point now) {
    std::string answer;
    std::string rest;
    if (take_answer(answer)) {
        m_answered = now;
        if (is_answer(answer, "http", rest)) {
            return fail(m_request.url + ": the server answered with status " + rest);
        }
        if (answer == "ready") return enter(state::scripting);
    }
    if (ask_again(now, k_question_patience)) ask(probe("true"), now);
}

void page_run::step_scripting(time_point now) {
    if (m_request.script.empty()) {
        enter(state::waiting);
        return step_waiting(now);
    }
    std::string answer;
    std::string rest;
    if (take_answer(answer)) {
        if (is_answer(answer, "throws", rest)) {
            return fail(thrown_text(m_request.script_name, rest));
        }
        is_answer(answer, "fine", m_script_result);
        return enter(state::waiting);
    }
    // Once only: run twice, it would do twice to the page what the user wants done once.
    if (!m_question) return run_users_script(now);
    doubt_question(m_request.script_name, m_request.script, now);
}

// The page never answers a question that it cannot parse. If it answers a later one, it is asked to
// parse the text of the first and to report the fault.
void page_run::doubt_question(const std::string& name, const std::string& script, time_point now) {
    if (m_question != m_doubted) {
        if (m_question->answered || now - m_asked < k_doubt_after) return;
        m_doubted = m_question;
        m_is_parsing = false;
        m_doubt = send("return 'alive';");
    } else if (m_doubt && m_doubt->answered && !m_is_parsing) {
        m_is_parsing = true;
        m_doubt = send(parse_check(script));
    } else if (m_doubt && m_doubt->answered) {
        const std::int64_t lines = m_state == state::scripting ? line_count(script) : 0;
        const std::string fault = parse_fault(name, lines, m_doubt->answer);
        m_doubt.reset();
        if (!fault.empty()) fail(fault);
    }
}

// Parsed where the browser hears nothing of it: asked as it is, what is no JavaScript would be an
// error of the page's.
void page_run::step_parsing(time_point now) {
    const std::string body = "return (" + m_request.wait_for + "\n)";
    std::string answer;
    if (take_answer(answer)) {
        m_is_parsed = true;
        const bool is_told = answer != "blocked";
        const std::string fault =
            is_told ? parse_fault("--wait-for " + m_request.wait_for, 0, answer) : "";
        return fault.empty() ? step_waiting(now) : fail(fault);
    }
    if (ask_again(now, k_question_patience)) {
        ask(parse_check(body), now);
        if (m_question->answered) step_parsing(now);
    }
}

void page_run::step_waiting(time_point now) {
    const std::string& condition = m_request.wait_for;
    if (!m_is_parsed && !condition.empty()) return step_parsing(now);
    std::string answer;
    if (take_answer(answer)) {
        m_answered = now;
        m_is_evaluated = true;
        if (answer == "ready") {
            return enter(m_request.stands_still ? state::ready : state::drawing);
        }
        if (!is_answer(answer, "throws", m_thrown)) m_thrown.clear();
        m_moves = m_request.stands_still && !m_request.wait_for.empty();
    }
    if (m_moves) {
        if (!m_question) ask_next_frame(probe(condition), now);
        return;
    }
    if (m_question && !condition.empty()) {
        doubt_question("--wait-for " + condition, "return (" + condition + "\n)", now);
        if (has_failed()) return;
    }
    if (ask_again(now, k_question_patience))
        ask(probe(condition.empty() ? "true" : condition), now);
}

void page_run::step_drawing(time_point now) {
    std::string answer;
    if (take_answer(answer)) {
        m_answered = now;
        if (answer == "ready") return enter(state::painting);
    }
    if (ask_again(now, k_question_patience)) ask(k_frames_probe, now);
}

void page_run::step_painting() {
    if (m_port.pictures() <= m_pictures_before) return;
    if (++m_pictures_seen == k_pictures_awaited) return enter(state::ready);
    ask_for_picture();
}

void page_run::step_living(time_point now) {
    std::string answer;
    if (take_answer(answer)) {
        m_answered = now;
        if (m_state == state::ending) return enter(state::ended);
    }
    if (m_question && is_silent(now)) {
        return fail(m_request.url + ": the page has stopped answering; its process may have ended");
    }
    if (m_question || (m_state == state::ready && now - m_answered < k_alive_interval)) return;
    ask("return 1;", now);
}

bool page_run::is_silent(time_point now) const {
    return now - m_asked >= std::min(m_request.timeout, k_max_page_silence);
}

void page_run::end(time_point now) {
    if (m_state != state::ready) return;
    // Its last frame has come, which proves as much as an answer does.
    if (m_request.stands_still) return enter(state::ended);
    // The answer to a question asked before the last frame would not prove that the page lived to
    // it.
    enter(state::ending);
    step_living(now);
}

std::string page_run::within() const { return " within " + in_seconds(m_request.timeout); }

std::string page_run::timeout_text() const {
    switch (m_state) {
        case state::loading:
            if (!has_condition_at_start())
                return m_request.url + ": the page has not loaded" + within();
            return "--start " + m_request.start + " has not become true" + within() +
                   (m_thrown.empty() ? "" : "; it throws " + m_thrown);
        case state::scripting:
            return m_request.script_name + " has not ended in the page" + within() +
                   "; perhaps it is no JavaScript";
        case state::waiting: {
            if (m_request.wait_for.empty()) break;
            const bool may_be_none = m_question && !m_is_evaluated;
            const std::string reason = !m_thrown.empty()
                                           ? "; it throws " + m_thrown
                                           : (may_be_none ? "; perhaps it is no JavaScript" : "");
            return "--wait-for " + m_request.wait_for + " has not become true" + within() + reason;
        }
        case state::drawing:
        case state::painting:
            return m_request.url + ": the page has painted nothing" + within();
        default:
            break;
    }
    return m_request.url + ": the page does not answer, or its fonts do not load," + within();
}

}  // namespace pennywort::host
