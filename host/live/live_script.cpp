// host/live/live_script.cpp - see the header for the contract.
//
// Every form returns one letter and a text: f for fine, t for thrown, b where eval is barred. Only
// eval gives the value of a script's last statement, and a SyntaxError for what is no JavaScript.
// Where a page's policy bars it, the script becomes part of a text that the runtime compiles
// itself, which no policy bars: as an expression, or if it is none, as the body of a function.
#include "host/live/live_script.h"

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "host/app/json.h"

namespace pennywort::host {

namespace {

constexpr std::string_view k_show =
    "const pennywortShow=v=>typeof v==='object'&&v!==null?JSON.stringify(v):String(v);";
// What is thrown need not have a text, and to ask for it may throw again.
constexpr std::string_view k_caught =
    "}catch(e){try{return 't'+String(e)}catch(e){return 'twhat was thrown has no text'}}";

std::string by_eval(const std::string& script) {
    std::string body(k_show);
    body += "try{(0,eval)('')}catch(e){return 'b'+String(e)}";
    body += "try{return 'f'+pennywortShow((0,eval)(" + json_text(script) + "))";
    return body.append(k_caught);
}

// The line ends keep a comment at the script's end from swallowing what follows.
std::string around(std::string_view before, std::string_view script, std::string_view behind) {
    std::string body(k_show);
    body.append("try{return 'f'+pennywortShow(").append(before).append("\n").append(script);
    return body.append("\n").append(behind).append(")").append(k_caught);
}

std::string as_expression(std::string_view script) {
    const auto last = script.find_last_not_of("; \t\r\n");
    return around("(", script.substr(0, last == script.npos ? 0 : last + 1), ")");
}

std::string as_function(std::string_view script) { return around("(function(){", script, "})()"); }

class script_run : public std::enable_shared_from_this<script_run> {
public:
    script_run(std::string script, script_sender send, script_outcome outcome)
        : m_script(std::move(script)), m_send(std::move(send)), m_outcome(std::move(outcome)) {}

    void start() {
        send(by_eval(m_script), [run = shared_from_this()](const std::string& answer) {
            if (answer.substr(0, 1) != "b") return run->end(answer);
            run->m_barred = answer.substr(1);
            run->try_forms({as_function(run->m_script), as_expression(run->m_script)});
        });
    }

private:
    void send(const std::string& body, std::function<void(const std::string&)> returned) {
        if (!m_send(body, std::move(returned))) end("tthere is no page");
    }

    // The last of them first. One that is no JavaScript is not answered, but what is sent behind it
    // is: scripts run in the order in which they are sent.
    void try_forms(std::vector<std::string> forms) {
        if (forms.empty()) {
            return end("tthis is no JavaScript, as far as can be told without eval: " + m_barred);
        }
        const std::string form = std::move(forms.back());
        forms.pop_back();
        send(form, [run = shared_from_this()](const std::string& answer) { run->end(answer); });
        if (m_has_ended) return;
        send("return ''", [run = shared_from_this(), forms = std::move(forms)](const auto&) {
            if (!run->m_has_ended) run->try_forms(forms);
        });
    }

    void end(const std::string& answer) {
        if (std::exchange(m_has_ended, true)) return;
        m_outcome(answer.substr(0, 1) == "f" ? "fine" : "thrown",
                  answer.empty() ? answer : answer.substr(1));
    }

    const std::string m_script;
    const script_sender m_send;
    const script_outcome m_outcome;
    std::string m_barred;  // what the page said of eval
    bool m_has_ended = false;
};

}  // namespace

void run_live_script(const std::string& script, const script_sender& send,
                     const script_outcome& outcome) {
    std::make_shared<script_run>(script, send, outcome)->start();
}

}  // namespace pennywort::host
