// host/render/page_sayings.h - what pages say of themselves, read from the events of their
// inspector: console lines, errors that no script catches, resources that do not come.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/render/media_fault.h"

namespace pennywort::host {

enum class saying_kind {
    console,          // a line of the console
    console_warning,  //
    console_error,    //
    error,            // that no script has caught
    rejection,        // of a promise that nobody minds
    failed_resource,
    media,    // a film or a sound that this browser cannot play
    sound,    // what of the page's sound an exact film cannot have
    unheard,  // an exact film without sound has a page with some
    clock,    // what of the page does not go by an exact film's time
};

struct page_saying {
    saying_kind kind = saying_kind::console;
    std::string line;  // with its place: "page.html:3:5: Uncaught Error: no such team"
    friend bool operator==(const page_saying&, const page_saying&) = default;
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

// A page by its own clock is loaded once more where the browser gives it another process. What it
// said the first time has been told, and is not told again.
class told_sayings {
public:
    // What the page before it says until this one begins is news.
    void page_asked_for();
    // The page begins, maybe once more.
    void page_begins();
    // It has come; whatever it says from now on is news.
    void page_came();
    bool is_new(const page_saying& said);

private:
    bool m_is_awaited = false;
    bool m_has_come = true;
    std::vector<page_saying> m_said;    // by the page that is being loaded
    std::vector<page_saying> m_before;  // by the one before, if that was given up
};

// By its own clock a page's workers are heard themselves, and the page's log repeats what they say
// as a text; but not all of them are, such as a worker of a worker. What comes in both ways is told
// once.
class worker_sayings {
public:
    // Whether the event says what is told in the other way.
    bool is_repeated(std::string_view method, std::string_view parameters);

private:
    // So many scripts, and lines of others, are followed.
    static constexpr std::size_t k_most = 1000;

    bool has_come(const std::string& line, bool is_log);

    std::set<std::string> m_heard;  // scripts of those that are
    // By lines of other scripts: how much more often each has come by itself than by the log.
    std::map<std::string, int> m_ahead;
};

// The address, without a fragment, of the document that has begun, where the event tells that this
// is the one of the page itself and of no frame.
std::optional<std::string> begun_page(std::string_view method, std::string_view parameters);

// Whether the event tells that a script of the host's own, run in the page of that address, is no
// JavaScript. The browser gives it the page's address, and keeps what it threw to itself; of a
// script of the page's at that address it does not.
bool is_hosts_syntax_error(std::string_view method, std::string_view parameters,
                           const std::string& address);

// The page has opened a dialog (alert, confirm), and waits.
inline constexpr std::string_view k_dialog_event = "Page.javascriptDialogOpening";

// An event of the inspector, with its parameters as JSON. Nothing for one that says nothing of the
// page, and for what is no such event. `is_of_file`: the page is a file of this machine, whose
// films may be looked into. `types`: of the films and sounds that have come.
std::optional<page_saying> saying_of(std::string_view method, std::string_view parameters,
                                     bool is_of_file = false, const media_types& types = {});

// Whether it is that a fetch holds the page's time no longer, without the name of what is fetched.
bool tells_of_fetch(const page_saying& said);

// What the evaluation of an expression threw, with its place, of the inspector's answer to it.
// Empty where it threw nothing.
std::string evaluation_fault(std::string_view result);

}  // namespace pennywort::host
