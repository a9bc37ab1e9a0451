// host/render/page_setup.h - what the browser and the page's inspector are told, so that pages find
// the world that the options ask for.
#pragma once

#include <string>
#include <vector>

#include "host/render/page_options.h"

namespace pennywort::host {

// Of the browser's command line. A name alone has an empty value.
named_texts browser_switches(const page_settings& settings);

// Whether it is a page of the net, which cookies are for.
bool is_of_a_site(const std::string& url);

struct inspector_request {
    std::string option;  // that asks for it, with what it was given: for a refusal
    std::string method;
    std::string parameters;  // JSON
};

// In their order, before the first page is loaded. `urls`: the pages', whose sites get the cookies.
// `is_exact`: pages live by their own clock.
std::vector<inspector_request> inspector_requests(const page_settings& settings,
                                                  const std::vector<std::string>& urls,
                                                  bool is_exact);

}  // namespace pennywort::host
