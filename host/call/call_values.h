// host/call/call_values.h - values of XML-RPC as JSON, both ways.
#pragma once

#include <string>

#include "host/app/json.h"
#include "loam/xmlrpc.h"

namespace pennywort::host {

// {"$base64": "AAE="} and {"$date": "20260131T14:08:55"} are the two types that JSON does not have.
// Returns what is wrong, in a few words; an empty text if nothing is.
std::string set_value(zXMLRPC::Value value, const json& from);

// Whether XML can hold the text at all.
bool is_for_xml(const std::string& text);

// `value` as JSON; false where it is none that XML-RPC has, or not what its type says.
bool get_value(const zXMLRPC::Value& value, json& out);

}  // namespace pennywort::host
