// host/render/page_options.h - what is asked for the pages themselves: the world that they live in.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/render/network_options.h"

namespace pennywort::host {

class option_parser;

struct page_settings {
    // Only of a page by its own clock: seconds since 1970 at its beginning, 0 for now; and where
    // Math.random begins, so that a film comes out the same again.
    double day = 0;
    std::uint32_t seed = 1;
    std::string start;  // when its time may begin: load, dom or an expression; empty is load

    std::uint32_t background = 0xFFFFFF;  // of a page that has none, as browsers have it
    double scale = 1;                     // pixels of the picture to one of the page, each way
    bool is_full = false;                 // a picture of the whole page
    std::string element;                  // or of one element of it, by its selector

    named_texts media;  // features, such as prefers-color-scheme; without a name the kind: print
    std::string locale;
    std::string timezone;
    std::string user_agent;
    named_texts headers;
    named_texts cookies;
    std::string proxy;
    bool ignores_certificates = false;
    named_texts switches;  // of the browser's command line
};

// The options as they are written. Used as a command is: add_options, then take.
class page_arguments {
public:
    void add_options(option_parser& parser);
    // What is wrong, in one line; an empty text if nothing is. `is_exact`: pages live by their own
    // clock.
    std::string take(bool is_exact, page_settings& settings) const;
    bool has_background() const { return !m_background.empty(); }

private:
    void add_time_options(option_parser& parser);
    void add_picture_options(option_parser& parser);
    void add_user_options(option_parser& parser);
    void add_network_options(option_parser& parser);
    std::string complaint_of_date() const;
    std::string take_time(bool is_exact, page_settings& settings) const;
    std::string take_picture(page_settings& settings) const;
    std::string take_media(page_settings& settings) const;
    std::string take_user(page_settings& settings) const;
    std::string take_network(page_settings& settings) const;

    using texts = std::vector<std::string>;

    std::string m_date;
    std::string m_seed;
    std::string m_start;
    std::string m_background;
    std::string m_scale = "1";
    bool m_is_full = false;
    std::string m_element;
    texts m_media;
    std::string m_locale;
    std::string m_timezone;
    std::string m_user_agent;
    texts m_headers;
    texts m_cookies;
    std::string m_proxy;
    bool m_ignores_certificates = false;
    texts m_switches;
};

// "#1a2b3c", "1a2b3c", "#abc" and the sixteen names of HTML as 0xRRGGBB. False for another text.
bool take_colour(const std::string& text, std::uint32_t& colour);

}  // namespace pennywort::host
