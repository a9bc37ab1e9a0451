// page_hearing.h - brings together what a page by its own clock sounds like: what its scripts make,
// as its driver says, and the files that it plays.
//
// Files are heard in a world beside that of the page's own scripts, and with objects of its own: a
// page that plays a file of another site, or of this machine, may not have its samples.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "webdisplay/page_inspector.h"
#include "webdisplay/page_samples.h"

namespace pennywort::webdisplay {

class timeline_port;

// Belongs to the display thread. Both must outlive it.
class page_hearing {
public:
    page_hearing(page_inspector& inspector, timeline_port& port)
        : m_inspector(inspector), m_port(port) {}

    // Before the first page.
    void prepare();
    // An event of the inspector.
    void hear(const std::string& method, const nlohmann::json& parameters);
    // What the page's driver has said of a frame: see page_scripts::films_at. `over` comes before
    // the port is told what is heard. A hurried frame does not wait for files that have not come,
    // nor does then one before it.
    void take(const std::string& said, bool is_hurried, std::function<void()> over);
    // The page's driver has thrown: the page is warned of it, once.
    void driver_threw();
    // A worker of the page's own has been left behind: the page is warned of that, once.
    void worker_left();
    // What it fetches has held its time for as long as it may: the page is warned of that, once.
    void fetch_left(std::chrono::milliseconds patience);

private:
    void page_begins();
    void warn(const std::string& script, bool& has_warned);
    void with_world(std::function<void()> work);
    void make_world(const std::string& frame, std::function<void()> work);
    void evaluate(const std::string& expression, page_inspector::receiver answered);
    void order(const std::string& text, bool is_hurried,
               std::function<void(const std::string& heard)> told);
    void hand_file(const std::string& url);

    page_inspector& m_inspector;
    timeline_port& m_port;
    std::int64_t m_world = 0;   // the inspector's number for it; 0 before there is one
    bool m_has_warned = false;  // this document
    bool m_has_told_worker = false;
    bool m_has_told_fetch = false;
};

}  // namespace pennywort::webdisplay
