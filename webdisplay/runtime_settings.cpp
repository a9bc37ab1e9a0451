// runtime_settings.cpp - see the header for the contract.
#include "webdisplay/runtime_settings.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "core/run/folders.h"
#include "loam/path.h"
#include "webdisplay/cef/data_file.h"

namespace pennywort::webdisplay {

namespace {

constexpr cef_color_t k_background = 0xFF27282B;
constexpr const char* k_default_locale = "en-US.pak";
constexpr std::uint16_t k_portuguese = 0x16;
constexpr std::uint16_t k_brazil = 1;

struct locale_row {
    std::uint16_t primary;
    const char* locale;
};
constexpr locale_row k_locales[] = {
    {0x04, "zh-Hans"}, {0x05, "cs_CZ"}, {0x07, "de_DE"}, {0x09, "en_US"},
    {0x0A, "es_ES"},   {0x0C, "fr_FR"}, {0x10, "it_IT"}, {0x11, "ja_JP"},
    {0x12, "ko_KR"},   {0x13, "nl_NL"}, {0x1D, "sv_SE"},
};

std::string child(const std::string& folder, const char* name) {
    return zFSPath(folder.c_str()).GoChild(name);
}

// The names of all locales in a folder.
std::vector<std::string> locales_in(const std::string& folder) {
    std::vector<std::string> names = run::names_in(folder);
    std::erase_if(names, [](const std::string& name) { return !name.ends_with(".pak"); });
    return names;
}

// Those that the runtime may choose for a language: its own, else other regions of it, and else
// American English, which serves every one.
std::vector<std::string> serving(const std::vector<std::string>& names, const std::string& locale) {
    const std::string language = locale.substr(0, 2);
    std::string region = locale;
    std::replace(region.begin(), region.end(), '_', '-');
    for (const std::string& wanted : {region + ".pak", language + ".pak"}) {
        if (std::find(names.begin(), names.end(), wanted) != names.end()) return {wanted};
    }
    std::vector<std::string> found;
    std::copy_if(names.begin(), names.end(), std::back_inserter(found),
                 [&](const std::string& name) { return name.substr(0, 2) == language; });
    if (found.empty() && std::find(names.begin(), names.end(), k_default_locale) != names.end()) {
        found.emplace_back(k_default_locale);
    }
    return found;
}

std::string locale_problem(const std::string& folder, const std::string& locale) {
    const std::vector<std::string> files = serving(locales_in(folder), locale);
    if (files.empty()) {
        return "The folder " + folder + " holds no locale of the browser runtime for " + locale +
               "; copy or link the runtime's locales there";
    }
    for (const std::string& name : files) {
        const std::string file = child(folder, name.c_str());
        if (cef::is_whole_pack(file)) continue;
        return "The browser runtime's locale " + file +
               " is damaged; copy or link the runtime's locales there anew";
    }
    return {};
}

}  // namespace

const char* runtime_locale(ui_language language) noexcept {
    if (language.primary == k_portuguese) {
        return language.sublanguage == k_brazil ? "pt_BR" : "en_US";
    }
    for (const locale_row& row : k_locales) {
        if (row.primary == language.primary) return row.locale;
    }
    return "en_US";
}

runtime_paths runtime_paths::find() {
    runtime_paths paths;
    const std::string program = run::program_folder();
    const std::string data = application_data_folder();
    if (!data.empty()) {
        const std::string cache = child(data, "TarnhelmCache");
        if (zDirectory::MakeSureExists(cache.c_str()) == 0) paths.cache = cache;
    }
    paths.child_process = child(program, child_process_name());
    paths.locales = child(child(program, "rsrc"), "ChromeLocales");
    if (!data.empty()) {
        paths.log_file = child(data, "Tarnhelm");
        zDirectory::MakeSureExists(paths.log_file.c_str());
    }
    paths.log_file = child(paths.log_file, "cef_debug_log.txt");
    return paths;
}

std::string runtime_paths::problem() const {
    if (!is_runnable(child_process)) {
        return "The browser runtime's helper program " + child_process +
               " is missing or may not be run; install it beside the host program";
    }
    const std::string of_locale = locale_problem(locales, runtime_locale(user_language()));
    if (!of_locale.empty()) return of_locale;
    const std::string of_allowance = allowance_problem();
    return of_allowance.empty() ? temporary_folder_problem() : of_allowance;
}

runtime_settings::runtime_settings(const runtime_paths& paths, const std::string& cache,
                                   bool cache_is_private)
    : m_locale(runtime_locale(user_language())),
      m_child_process(paths.child_process),
      m_locales(paths.locales),
      m_log_file(paths.log_file),
      m_cache(cache) {
    m_settings.no_sandbox = 1;
    m_settings.windowless_rendering_enabled = 1;
    m_settings.locale = m_locale.view();
    // Without a folder of the user's the data stays in memory, but the runtime still needs a folder
    // that no other process uses.
    (cache_is_private && paths.cache.empty() ? m_settings.root_cache_path : m_settings.cache_path) =
        m_cache.view();
    m_settings.browser_subprocess_path = m_child_process.view();
    m_settings.locales_dir_path = m_locales.view();
    m_settings.log_file = m_log_file.view();
    m_settings.background_color = k_background;
}

}  // namespace pennywort::webdisplay
