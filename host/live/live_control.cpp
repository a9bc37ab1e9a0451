// host/live/live_control.cpp - see the header for the contract.
#include "host/live/live_control.h"

#include <cmath>
#include <utility>

#include "core/limits.h"
#include "core/text/numbers.h"
#include "host/app/page_address.h"

namespace pennywort::host {

namespace {

live_answer with(int status, const json& value) {
    live_answer answer;
    answer.status = status;
    answer.body = std::make_shared<const std::string>(json_text(value));
    return answer;
}

live_answer refused(int status, const std::string& error) {
    return with(status, {{"error", error}});
}

live_answer done() { return with(200, {{"ok", true}}); }

// A parameter of the address that is a number; 0 where it is missing, nothing where it is something
// else.
std::optional<std::uint64_t> parameter(std::string_view query, std::string_view name) {
    while (!query.empty()) {
        const auto part = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), part.size() + 1));
        const auto sign = part.find('=');
        if (sign == std::string_view::npos || part.substr(0, sign) != name) continue;
        return text::digits<std::uint64_t>(part.substr(sign + 1));
    }
    return 0;
}

std::optional<long> side(const json_object& body, const char* name) {
    const auto value = body.number(name);
    if (!value || std::floor(*value) != *value) return {};
    if (!(*value >= 1 && *value <= k_max_view_side)) return {};
    return static_cast<long>(*value);
}

}  // namespace

live_control::live_control(live_port& port, live_pictures& pictures, std::vector<std::string> queue,
                           const run::monotonic_clock& clock)
    : m_port(port),
      m_pictures(pictures),
      m_clock(clock),
      m_events(k_max_log_lines, k_max_log_line),
      m_traces(k_max_log_lines, k_max_log_line),
      m_queue(queue.begin(), queue.end()) {}

live_control::command live_control::command_of(std::string_view path) {
    static const std::map<std::string_view, command> commands = {
        {"/api/load", &live_control::load},
        {"/api/next", &live_control::next},
        {"/api/remove", &live_control::remove},
        {"/api/size", &live_control::resize},
        {"/api/visibility", &live_control::set_visible},
        {"/api/repaint", &live_control::repaint},
        {"/api/script", &live_control::script},
        {"/api/cookies/delete", &live_control::delete_cookies},
    };
    const auto found = commands.find(path);
    return found == commands.end() ? nullptr : found->second;
}

live_answer live_control::answer(const live_request& request) {
    const command run = command_of(request.path);
    const bool is_post = request.method == live_request::verb::post;
    if (run != nullptr && !is_post) return refused(405, request.path + " wants POST");
    if (run != nullptr) return post(request, run);
    const auto found = get(request);
    return is_post && found.status != 404 ? refused(405, request.path + " wants GET") : found;
}

live_answer live_control::get(const live_request& request) {
    const auto after = parameter(request.query, "after");
    const auto id = parameter(request.query, "id");
    if (!after || !id) return refused(400, "\"after\" and \"id\" have to be whole numbers");
    if (request.path == "/api/state") return state();
    if (request.path == "/api/picture") return picture(*after);
    if (request.path == "/api/events") return with(200, m_events.lines_after(*after));
    if (request.path == "/api/traces") return with(200, m_traces.lines_after(*after));
    if (request.path == "/api/result") return result(*id);
    return refused(404, "there is no " + request.path);
}

live_answer live_control::post(const live_request& request, command run) {
    std::string reason;
    // A command without anything to say may leave its body out.
    const auto body = json_object::parse(request.body.empty() ? "{}" : request.body, reason);
    return body ? (this->*run)(*body) : refused(400, reason);
}

std::size_t live_control::queue_bytes() const {
    std::size_t bytes = 0;
    for (const auto& url : m_queue) bytes += url.size();
    return bytes;
}

std::int64_t live_control::milliseconds_since(run::monotonic_clock::time then) const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(m_clock.now() - then).count();
}

// Reports a page as on its way as soon as it is asked for. Until the display has seen the command,
// a reader of the state would else take the page before it for the new one.
live_status live_control::status_now() const {
    live_status status = m_status;
    if (status.loads >= m_loads) return status;
    status.phase = status.url.empty() ? live_phase::starting : live_phase::loading;
    status.wanted = m_asked_url;
    status.error.clear();
    status.since = m_asked;
    return status;
}

live_answer live_control::state() const {
    const auto counts = m_pictures.counts();
    const std::lock_guard hold(m_lock);
    const live_status status = status_now();
    return with(200, {{"url", status.url},
                      {"loading", status.is_loading},
                      {"visible", status.is_visible},
                      {"width", status.width},
                      {"height", status.height},
                      {"painted", counts.painted},
                      {"shown", counts.encoded},
                      {"dropped", counts.dropped},
                      {"phase", name_of(status.phase)},
                      {"since_ms", milliseconds_since(status.since)},
                      {"wanted", status.wanted},
                      {"error", status.error},
                      {"silent", status.is_silent},
                      {"reloads", status.reloads},
                      {"dropped_calls", status.dropped_calls},
                      {"queue", m_queue}});
}

live_answer live_control::picture(std::uint64_t after) {
    live_answer answer;
    answer.body = m_pictures.take(after, answer.picture);
    // One that there was no memory for is empty.
    answer.status = answer.body && !answer.body->empty() ? 200 : 204;
    answer.type = "image/png";
    return answer;
}

live_answer live_control::result(std::uint64_t id) const {
    const std::lock_guard hold(m_lock);
    const auto found = m_scripts.find(id);
    if (found == m_scripts.end()) return refused(404, "there is no script of that id");
    const auto& script = found->second;
    if (script.kind.empty()) {
        const bool is_lost = m_clock.now() - script.asked > k_max_script_wait;
        return with(200, {{"id", id}, {"state", is_lost ? "lost" : "waiting"}});
    }
    return with(200, {{"id", id}, {"state", script.kind}, {"result", script.result}});
}

live_answer live_control::load(const json_object& body) {
    const auto* text = body.text("url");
    if (text == nullptr) return refused(400, "\"url\" is missing or no text");
    std::string reason;
    const auto url = page_address(*text, reason);
    if (!url) return refused(400, reason);
    const auto* now = body.truth("now");
    // Any other value would put a page on air that was meant for later.
    if (now == nullptr && body.has("now")) return refused(400, "\"now\" has to be true or false");
    if (now == nullptr || *now) {
        load_page(*url);
        return done();
    }
    const std::lock_guard hold(m_lock);
    if (m_queue.size() >= k_max_queued_pages || queue_bytes() + url->size() > k_max_queue_bytes) {
        return refused(400, "the queue is full");
    }
    m_queue.push_back(*url);
    return done();
}

void live_control::load_page(const std::string& url) {
    m_port.load(url);
    const std::lock_guard hold(m_lock);
    ++m_loads;
    m_asked_url = url;
    m_asked = m_clock.now();
}

live_answer live_control::next(const json_object&) {
    std::string url;
    {
        const std::lock_guard hold(m_lock);
        if (m_queue.empty()) return refused(400, "the queue is empty");
        url = std::move(m_queue.front());
        m_queue.pop_front();
    }
    load_page(url);
    return done();
}

live_answer live_control::remove(const json_object& body) {
    const auto index = body.number("index");
    const std::lock_guard hold(m_lock);
    const auto size = static_cast<double>(m_queue.size());
    if (!index || !(*index >= 0 && *index < size) || std::floor(*index) != *index) {
        return refused(400, "\"index\" is no place in the queue");
    }
    m_queue.erase(m_queue.begin() + static_cast<std::ptrdiff_t>(*index));
    return done();
}

live_answer live_control::resize(const json_object& body) {
    const auto width = side(body, "width");
    const auto height = side(body, "height");
    if (!width || !height) {
        return refused(400, "\"width\" and \"height\" have to be whole numbers from 1 to 16384");
    }
    m_port.resize(*width, *height);
    return done();
}

live_answer live_control::set_visible(const json_object& body) {
    const auto* visible = body.truth("visible");
    if (visible == nullptr) return refused(400, "\"visible\" has to be true or false");
    m_port.set_visible(*visible);
    return done();
}

live_answer live_control::repaint(const json_object&) {
    m_port.repaint();
    return done();
}

live_answer live_control::script(const json_object& body) {
    const auto* text = body.text("script");
    if (text == nullptr || text->empty())
        return refused(400, "\"script\" is missing, empty or no text");
    std::uint64_t id = 0;
    {
        const std::lock_guard hold(m_lock);
        id = ++m_last_script;
        m_scripts[id].asked = m_clock.now();
        if (m_scripts.size() > k_max_kept_scripts) m_scripts.erase(m_scripts.begin());
    }
    m_port.run_script(id, *text);
    return with(200, {{"id", id}});
}

live_answer live_control::delete_cookies(const json_object& body) {
    const auto* url = body.text("url");
    // An empty one empties the whole jar, so it has to be said and not merely left out.
    if (!url) return refused(400, "\"url\" is missing or no text; \"\" stands for every site");
    // The display leaves alone what is no URL, and nobody would be told.
    if (!url->empty() && url->find("://") == url->npos) {
        return refused(400, *url + " is no URL, such as https://example.org");
    }
    m_port.delete_cookies(*url);
    return done();
}

void live_control::set_status(const live_status& status) {
    const std::lock_guard hold(m_lock);
    m_status = status;
}

void live_control::script_ended(std::uint64_t id, const std::string& kind,
                                const std::string& result) {
    const std::lock_guard hold(m_lock);
    const auto found = m_scripts.find(id);
    if (found == m_scripts.end()) return;
    found->second.kind = kind;
    found->second.result = result.substr(0, k_max_script_result);
}

}  // namespace pennywort::host
