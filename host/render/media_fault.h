// host/render/media_fault.h - names what keeps a film or a sound of a page from being played: the
// runtime is built without the formats that need a licence.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pennywort::host {

// Stands in each document before its own scripts, and tells by the binding of that name which of
// its films and sounds failed.
inline constexpr const char* k_media_binding = "thinternalMedia";
extern const char* const k_media_watch;

// "H.264, AAC": those of the formats that the runtime lacks which the bytes of an MPEG-4 file name;
// empty if none.
std::string lacking_formats(std::string_view bytes);

// What the binding was called with. A line for a film or a sound in such a format, with its name;
// nothing for one that failed for another reason. Looks into a file of this machine where the page
// is one too: any page can call the binding, with any name, and a share of another machine would be
// told who asks.
std::optional<std::string> media_fault(const std::string& payload, bool is_of_file);

}  // namespace pennywort::host
