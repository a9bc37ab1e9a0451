// fake_cef_inspector.cpp - the inspector of a page of the fake runtime: as much of its protocol as
// moves a page's time. Time passes only by a budget.
#include <nlohmann/json.hpp>
#include <utility>

#include "tests/fakes/fake_cef_page.h"
#include "tests/fakes/fake_cef_runtime.h"

namespace fake {

namespace {

using nlohmann::json;

std::string answer_to(const json& call, json result = json::object()) {
    return json{{"id", call.at("id")}, {"result", std::move(result)}}.dump();
}

}  // namespace

void page::observe(const void* watcher, caller_ref<cef_dev_tools_message_observer_t> observer) {
    note([&](fake_cef_browser& b) { b.inspector_observers += observer ? 1 : -1; });
    m_observers.erase(watcher);
    if (observer) m_observers.emplace(watcher, std::move(observer));
}

void page::inspector_says(const std::string& message) {
    const auto observers = m_observers;
    const callback_scope scope(*this);
    for (const auto& [watcher, observer] : observers) {
        if (!observer->on_dev_tools_message || is_gone()) continue;
        observer->on_dev_tools_message(observer.get(), browser_argument(), message.data(),
                                       message.size());
    }
}

void page::inspect(const std::string& message) {
    const json call = json::parse(message);
    const std::string method = call.at("method");
    note([&](fake_cef_browser& b) {
        b.inspector_methods.push_back(method);
        b.inspector_parameters.push_back(call.at("params").dump());
    });
    if (runtime::the().script().inspector_is_silent) return;
    const json& params = call.at("params");
    if (params.value("expression", "").find("requestAnimationFrame(at") != std::string::npos) {
        m_turns.push_back(answer_to(call));
        return;
    }
    if (method == "Performance.getMetrics") {
        const json clock{{"name", "Timestamp"}, {"value", m_time_ms / 1000}};
        return inspector_says(answer_to(call, {{"metrics", json::array({clock})}}));
    }
    if (params.contains("returnByValue")) {
        const std::string expression = params.at("expression");
        const bool is_frame = expression.find("thinternal films") != std::string::npos;
        const std::string& sound = runtime::the().script().page_sounds_like;
        const json value{{"type", "string"},
                         {"value", is_frame && !sound.empty() ? sound : expression}};
        return inspector_says(answer_to(call, {{"result", value}}));
    }
    inspector_says(answer_to(call));
    if (!params.contains("budget")) return;
    m_time_ms += params.at("budget").get<double>();
    inspector_says(R"({"method":"Emulation.virtualTimeBudgetExpired","params":{}})");
}

}  // namespace fake
