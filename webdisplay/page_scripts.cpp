// page_scripts.cpp - see the header for the contract.
#include "webdisplay/page_scripts.h"

#include "loam/base64.h"

namespace pennywort::webdisplay::page_scripts {

namespace {

std::string joined(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (const std::string_view part : parts) text += part;
    return text;
}

std::string base64(std::string_view bytes) {
    const int length = static_cast<int>(bytes.size());
    std::string text(static_cast<std::size_t>(Base64encode_len(length)), '\0');
    const int written = Base64encode(text.data(), bytes.data(), length);
    text.resize(written > 0 ? static_cast<std::size_t>(written - 1) : 0);  // without its NUL
    return text;
}

}  // namespace

std::string style_sheet(std::string_view css) {
    return joined(
        {"var link = document.createElement('link');link.setAttribute('rel', 'stylesheet');"
         "link.setAttribute('type', 'text/css');link.setAttribute('href', '",
         "data:text/css;charset=utf-8;base64,", base64(css),
         "');document.getElementsByTagName('head')[0].appendChild(link);"});
}

std::string host_callback(std::string_view command, std::string_view result) {
    return joined({"if (typeof(hostAppCallback) == 'function') {hostAppCallback('", command, "','",
                   result, "');}"});
}

std::string with_result(std::string_view script, std::string_view id) {
    return joined({"function tarntemp(){", script, "};window.hostApp.execute('", k_result_command,
                   ":", id, "',tarntemp())"});
}

}  // namespace pennywort::webdisplay::page_scripts
