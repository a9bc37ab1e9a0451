// host/render/network_options.h - what a page sends, and through whom, as the options write it.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace pennywort::host {

using named_texts = std::vector<std::pair<std::string, std::string>>;

// Each of these returns what is wrong with what was given, in one line; an empty text if nothing
// is.

// "NAME: VALUE". The values of a name that is given several times become one list.
std::string take_headers(const std::vector<std::string>& given, named_texts& headers);
// "NAME=VALUE".
std::string take_cookies(const std::vector<std::string>& given, named_texts& cookies);
// "NAME" or "NAME=VALUE", of the browser's command line.
std::string take_switches(const std::vector<std::string>& given, named_texts& switches);
// "http://HOST:PORT", "HOST:PORT" or "none", as the browser is to be told.
std::string take_proxy(const std::string& given, std::string& proxy);

}  // namespace pennywort::host
