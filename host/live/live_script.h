// host/live/live_script.h - runs a script in a page for its value, on a page that forbids eval too.
// It knows no browser.
#pragma once

#include <functional>
#include <string>

namespace pennywort::host {

// Runs `body` as the body of a function in the page, and calls `returned` with what that returns.
// It is never called if the body is no JavaScript or the page goes. False if there is no page.
using script_sender =
    std::function<bool(const std::string& body, std::function<void(const std::string&)> returned)>;

// `kind` is "fine" with the value as text, or "thrown" with the error.
using script_outcome = std::function<void(const std::string& kind, const std::string& result)>;

// Calls `outcome` at most once; not at all if the page is left before it answers. `script` runs at
// most once, too.
void run_live_script(const std::string& script, const script_sender& send,
                     const script_outcome& outcome);

}  // namespace pennywort::host
