// exported_constants.cpp - keeps the constants of exported classes in the DLL; built for Windows
// only. Their users take them from there, while the compiler leaves out those that the library
// itself never refers to.
#include "loam/babel.h"
#include "loam/boot.h"
#include "loam/record.h"
#include "loam/socket.h"
#include "loam/string.h"
#include "loam/xml.h"
#include "loam/xmlrpc.h"

namespace {

[[gnu::used]] const void* const k_kept[] = {
    &zBabel::k_utf8,
    &zMire::k_tag,
    &zRecord::k_at_end,
    &zSocket::k_not_now,
    &zSocket::k_timed_out,
    &zSocket::k_address_in_use,
    &zSocket::k_lost,
    &zSocket::k_no_resources,
    &zSocket::k_failed,
    &zSocket::k_writable,
    &zSocket::k_readable,
    &zSocket::k_no_time_out,
    &zString::k_to_nul,
    &zXML::k_name,
    &zXML::k_text,
    &zXML::k_malformed,
    &zXML::k_doctype,
    &zXML::k_entity,
    &zXML::k_encoding,
    &zXML::k_too_large,
    &zXML::k_too_deep,
    &zXML::k_too_wide,
    &zXML::k_too_many_attributes,
    &zXML::k_bad_name,
    &zXML::k_bad_text,
    &zXML::k_most_bytes,
    &zXML::k_most_elements,
    &zXML::k_deepest,
    &zXML::k_widest,
    &zXML::k_most_attributes,
    &zXML::k_with_declaration,
    &zXML::k_short_empty,
    &zXMLRPC::k_no_message,
    &zXMLRPC::k_other_type,
    &zXMLRPC::k_bad_value,
    &zXMLRPC::k_out_of_range,
    &zXMLRPC::k_is_fault,
};

}  // namespace
