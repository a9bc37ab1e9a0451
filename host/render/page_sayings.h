// host/render/page_sayings.h - what pages say of themselves, read from the events of their
// inspector: console lines, errors that no script catches, resources that do not come.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

enum class saying_kind {
    console,          // a line of the console
    console_warning,  //
    console_error,    //
    error,            // that no script has caught
    rejection,        // of a promise that nobody minds
    failed_resource,
    media,  // a film or a sound that this browser cannot play
    sound,  // what of the page's sound an exact film cannot have
};

struct page_saying {
    saying_kind kind = saying_kind::console;
    std::string line;  // with its place: "page.html:3:5: Uncaught Error: no such team"
};

// Of all pages of a run.
struct saying_counts {
    std::uint64_t errors = 0;
    std::uint64_t rejections = 0;
    std::uint64_t failed_resources = 0;
    std::uint64_t console_errors = 0;
    std::uint64_t console_warnings = 0;

    void count(saying_kind kind);
    // What --strict minds: all but warnings.
    std::uint64_t faults() const;
    // "2 uncaught errors, 1 failed resource"; empty if there was nothing.
    std::string text() const;
};

// The page has opened a dialog (alert, confirm), and waits.
inline constexpr std::string_view k_dialog_event = "Page.javascriptDialogOpening";

// An event of the inspector, with its parameters as JSON. Nothing for one that says nothing of the
// page, and for what is no such event. `is_of_file`: the page is a file of this machine, whose
// films may be looked into.
std::optional<page_saying> saying_of(std::string_view method, std::string_view parameters,
                                     bool is_of_file = false);

}  // namespace pennywort::host
