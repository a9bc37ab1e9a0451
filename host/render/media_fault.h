// host/render/media_fault.h - names what keeps a film or a sound of a page from being played: the
// runtime is built without the formats that need a licence.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

// Stands in each document before its own scripts, and tells by the binding of that name which of
// its films and sounds failed. One that plays from another of its sources has not.
inline constexpr const char* k_media_binding = "thinternalMedia";
extern const char* const k_media_watch;

// "H.264, AAC": those of the formats that the runtime lacks which the bytes of an MPEG-4 file name;
// empty if none.
std::string lacking_formats(std::string_view bytes);

// What servers have called the films and sounds that they have sent for a page.
class media_types {
public:
    // An event of the inspector, with its parameters as JSON; any.
    void hear(std::string_view method, std::string_view parameters);
    void page_begins();
    // "video/mp4"; empty for what no server has sent.
    std::string of(const std::string& url) const;

private:
    std::map<std::string, std::string> m_asked;  // the URL of each request; others may answer it
    std::map<std::string, std::string> m_types;
};

// What the binding was called with. A line for a film or a sound in such a format, with its name,
// or for another one that has come and cannot be played; nothing for one that has not come. Looks
// into a file of this machine where the page is one too: any page can call the binding, with any
// name, and a share of another machine would be told who asks.
std::optional<std::string> media_fault(const std::string& payload, bool is_of_file,
                                       const media_types& types = {});

}  // namespace pennywort::host
