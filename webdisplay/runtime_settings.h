// runtime_settings.h - what the runtime is started with.
#pragma once

#include <string>

#include "webdisplay/cef/text.h"
#include "webdisplay/host_environment.h"

namespace pennywort::webdisplay {

// The runtime's name of the locale for a language. The spelling with underscores is meant.
const char* runtime_locale(ui_language language) noexcept;

// Paths that the runtime needs, found before it is started, since it would end the process or hang
// where one of them is missing.
struct runtime_paths {
    std::string child_process;
    std::string locales;
    std::string log_file;
    std::string cache;  // the preferred one; empty if there is none

    static runtime_paths find();
    // Empty if all is there, else what is missing and what to do.
    std::string problem() const;
};

// Holds the texts that `settings` points to.
class runtime_settings {
public:
    // `cache` may be empty; a private one is not named as the user's cache.
    runtime_settings(const runtime_paths& paths, const std::string& cache, bool cache_is_private);

    cef_settings_t& get() { return m_settings; }

private:
    cef::utf16 m_locale;
    cef::utf16 m_child_process;
    cef::utf16 m_locales;
    cef::utf16 m_log_file;
    cef::utf16 m_cache;
    cef_settings_t m_settings{};
};

}  // namespace pennywort::webdisplay
