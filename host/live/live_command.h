// host/live/live_command.h - the command "live": its options and what they mean.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/app/command.h"
#include "host/live/live.h"

namespace pennywort::host {

class live_command : public command {
public:
    const char* name() const override { return "live"; }
    const char* summary() const override { return "Show web pages, and a page to control them"; }
    const char* footer() const override;
    void add_options(option_parser& parser) override;
    std::string take_arguments() override;
    bool is_verbose() const override { return m_options.is_verbose; }
    int run(const console& out) override;

    // What the arguments ask for, once they have been taken.
    const live_options& options() const { return m_options; }

private:
    std::string take_picture_format();
    std::string take_address();

    // The arguments as they were written.
    std::vector<std::string> m_pages;
    std::string m_size = "1280x720";
    std::string m_fps = "50";
    std::string m_port = "8080";
    std::string m_feed;
    std::string m_on_message;

    live_options m_options;
};

std::unique_ptr<command> make_live_command();

}  // namespace pennywort::host
