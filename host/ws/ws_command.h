// host/ws/ws_command.h - the command "ws": its options and its run.
#pragma once

#include <memory>
#include <string>

#include "host/app/command.h"
#include "host/ws/ws_session.h"

namespace pennywort::host {

class ws_command : public command {
public:
    const char* name() const override { return "ws"; }
    const char* summary() const override { return "Talk to a WebSocket, a line for each message"; }
    const char* footer() const override;
    void add_options(option_parser& parser) override;
    std::string take_arguments() override;
    bool is_verbose() const override { return m_is_verbose; }
    int run(const console& out) override;

    const ws_options& options() const { return m_options; }

private:
    int talk(ws_session& session);

    std::string m_ping;
    std::string m_linger = "1";
    std::string m_timeout = "30";
    std::string m_stall = std::to_string(k_max_input_pause.count());
    bool m_is_managed = false;
    bool m_is_system = false;
    bool m_is_verbose = false;
    ws_options m_options;
};

std::unique_ptr<command> make_ws_command();

}  // namespace pennywort::host
