// host/discover/service_words.h - services as the user writes and reads them.
#pragma once

#include <string>

#include "bonjour.h"
#include "host/app/json.h"
#include "loam/record.h"

namespace pennywort::host {

// "http", "_http._tcp" and "_http._tcp." become "_http._tcp.". Returns what is wrong with the text,
// in one line; an empty text if nothing is.
std::string take_service_type(const std::string& text, std::string& type);

// A service that was found or is gone, in one line: "found Camera 1 studio.local:8080 path=/". What
// a terminal would obey, and bytes that are no UTF-8, are written as \xNN: the texts are others'.
std::string service_line(const zRecord& notification);
json service_json(const zRecord& notification);

// What a refusal of the DNS-SD library means, by its number.
std::string dnssd_refusal(long error);
// Why nothing could be registered or looked for.
std::string dnssd_failure(const cBonjour& bonjour);

}  // namespace pennywort::host
