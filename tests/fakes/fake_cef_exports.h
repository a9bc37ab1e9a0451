// fake_cef_exports.h - what the fake runtime exports, each function with the type that the runtime
// has.
#pragma once

#include "cef_abi.h"
#include "pennywort_export.h"

#define FAKE_CEF_EXPORTS(X)                  \
    X(cef_api_hash)                          \
    X(cef_version_info)                      \
    X(cef_get_exit_code)                     \
    X(cef_initialize)                        \
    X(cef_shutdown)                          \
    X(cef_do_message_loop_work)              \
    X(cef_execute_process)                   \
    X(cef_currently_on)                      \
    X(cef_post_task)                         \
    X(cef_post_delayed_task)                 \
    X(cef_browser_host_create_browser)       \
    X(cef_cookie_manager_get_global_manager) \
    X(cef_process_message_create)            \
    X(cef_list_value_create)                 \
    X(cef_string_utf8_to_utf16)              \
    X(cef_string_utf16_to_utf8)              \
    X(cef_string_utf16_set)                  \
    X(cef_string_utf16_cmp)                  \
    X(cef_string_utf16_clear)                \
    X(cef_string_utf8_clear)                 \
    X(cef_string_userfree_utf16_alloc)       \
    X(cef_string_userfree_utf16_free)        \
    X(cef_v8_context_get_current_context)    \
    X(cef_v8_value_create_function)          \
    X(cef_v8_value_create_object)            \
    X(cef_v8_value_create_string)

extern "C" {
#define FAKE_CEF_DECLARE(name) PENNYWORT_API cef_function::name name;
FAKE_CEF_EXPORTS(FAKE_CEF_DECLARE)
#undef FAKE_CEF_DECLARE
}
