// host/call/call_words.cpp - see the header for the contract.
#include "host/call/call_words.h"

#include "host/app/http_options.h"
#include "httpclient.h"
#include "loam/xml.h"
#include "xmlrpc.h"

namespace pennywort::host {

namespace {

// A response outside 200 to 299 has this minus its status.
constexpr zStatus k_first_http_status = -29000;

std::string words_for_xml(zStatus status) {
    switch (status) {
        case zXML::k_malformed:
        case zXML::k_doctype:
        case zXML::k_entity:
        case zXML::k_encoding:
            return "the response is no XML-RPC";
        case cHttpSession::k_too_large:
        case zXML::k_too_large:
        case zXML::k_too_deep:
        case zXML::k_too_wide:
        case zXML::k_too_many_attributes:
            return "the response is larger than what is read";
        case zXML::k_bad_text:
            return "the call holds a character that XML cannot";
        case cXMLRPC::k_multipart:
            return "the response has several parts";
        default:
            return {};
    }
}

}  // namespace

std::string words_for_call(zStatus status, std::int32_t error, bool has_head) {
    if (status <= k_first_http_status) {
        return "the server answered " + std::to_string(k_first_http_status - status);
    }
    std::string words = words_for_request(status, error, has_head);
    if (words.empty()) words = words_for_xml(status);
    return words.empty() ? "failed with status " + std::to_string(status) : words;
}

}  // namespace pennywort::host
