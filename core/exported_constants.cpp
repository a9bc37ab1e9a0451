// exported_constants.cpp - keeps the constants of all exported classes in the DLL; built for
// Windows only. Their users take them from there, while the compiler leaves out those that the
// library itself never refers to.
#include "httpclient.h"
#include "httpserver.h"
#include "xmlrpc.h"

namespace {

[[gnu::used]] const void* const k_kept[] = {
    &cHttpHandler::k_get,
    &cHttpHandler::k_post,
    &cHttpHandler::k_put,
    &cHttpSession::k_bad_header_name,
    &cHttpSession::k_connect_failed,
    &cHttpSession::k_delete,
    &cHttpSession::k_get,
    &cHttpSession::k_incomplete,
    &cHttpSession::k_no_request,
    &cHttpSession::k_no_scheme,
    &cHttpSession::k_no_session,
    &cHttpSession::k_not_opened,
    &cHttpSession::k_patch,
    &cHttpSession::k_post,
    &cHttpSession::k_put,
    &cHttpSession::k_receive_failed,
    &cHttpSession::k_send_failed,
    &cHttpSession::k_session_failed,
    &cHttpSession::k_stopped,
    &cHttpSession::k_timed_out,
    &cHttpSession::k_too_large,
    &cHttpSession::k_unknown_scheme,
    &cHttpSession::k_url_too_short,
    &cHttpSession::k_write_failed,
    &cXMLRPC::k_multipart,
};

}  // namespace
