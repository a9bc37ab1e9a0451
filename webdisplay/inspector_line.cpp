// inspector_line.cpp - see the header for the contract.
#include "webdisplay/inspector_line.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace pennywort::webdisplay {

namespace {

using nlohmann::json;

// The page's own clock calls the same inspector, whose answers both hear: each knows its own.
constexpr int k_first_id = 1 << 30;

std::string text_of(const json& value) {
    return value.is_null() ? std::string()
                           : value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

inspector_line::inspector_line(listener heard)
    : m_heard(std::move(heard)),
      m_inspector(
          [this](const std::string& message) {
              if (m_host)
                  m_host->send_dev_tools_message(m_host.get(), message.data(), message.size());
          },
          [this](const std::string& method, const json& parameters, const std::string&) {
              if (m_heard) m_heard(method, text_of(parameters));
          },
          k_first_id) {}

void inspector_line::browser_arrived(cef_browser_t* browser) {
    m_host = cef::ref<cef_browser_host_t>(browser->get_host(browser));
    if (!m_host) return;
    m_registration = cef::ref<cef_registration_t>(
        m_host->add_dev_tools_message_observer(m_host.get(), counted_observer()));
}

void inspector_line::call(const inspector_call& asked) {
    if (!m_host) return asked.told ? asked.told({}) : void();
    json parameters = json::parse(asked.parameters, nullptr, false);
    if (!parameters.is_object()) parameters = json::object();
    m_inspector.call(asked.method.c_str(), parameters, [told = asked.told](const json& result) {
        if (told) told(text_of(result));
    });
}

void inspector_line::close() {
    m_heard = {};
    m_registration = {};
    m_host = {};
    m_inspector.end();
}

bool inspector_line::is_object(const std::string& parameters) {
    return parameters.empty() || json::parse(parameters, nullptr, false).is_object();
}

void inspector_line::OnDevToolsMessage(std::string_view message) { m_inspector.take(message); }

}  // namespace pennywort::webdisplay
