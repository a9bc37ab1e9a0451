// host/render/render_command.h - the command "render": its options and what they mean.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/app/command.h"
#include "host/output/output_options.h"
#include "host/render/render_options.h"

namespace pennywort::host {

class render_command : public command {
public:
    const char* name() const override { return "render"; }
    const char* summary() const override { return "Show web pages and write their frames"; }
    const char* footer() const override;
    void add_options(option_parser& parser) override;
    std::string take_arguments() override;
    bool is_verbose() const override { return m_options.verbose; }
    bool hears_browser() const override { return m_options.hears_browser; }
    int run(const console& out) override;

    // What the arguments ask for, once they have been taken.
    const render_options& options() const { return m_options; }

private:
    // The arguments as they were written; what they mean comes after.
    struct arguments {
        std::vector<std::string> pages;
        std::string size = "1280x720";
        std::string fps = "50";
        std::string frames;
        std::string seconds;
        std::string from;
        std::string to;
        std::string timeout = "30";
        std::string css;
        std::string script;
        std::string wait_for;
        std::string feed;
        std::string on_message;
        std::string output;
        std::string format;
        std::string pacing = "request";
        std::string host_clock;
        bool is_endless = false;
        bool is_free_running = false;
        bool is_exact = false;
        bool is_live = false;
    };

    void add_page_options(option_parser& parser);
    void add_feed_options(option_parser& parser);
    void add_output_options(option_parser& parser);
    void add_flags(option_parser& parser);
    std::string take_picture_format();
    std::string take_output();
    std::string take_film();
    std::string take_length();
    std::string take_frames();
    std::string take_seconds();
    std::string take_piece();
    std::string take_choices();
    std::string take_clock();
    std::string take_page_settings();
    std::string take_picture_size();
    std::string take_timeout();
    std::string take_texts();
    std::string take_feed_options();
    std::string page_that_is_written() const;
    std::string take_addresses();

    arguments m_raw;
    output_options m_output_options;
    page_arguments m_page;
    render_options m_options;
};

std::unique_ptr<command> make_render_command();

}  // namespace pennywort::host
