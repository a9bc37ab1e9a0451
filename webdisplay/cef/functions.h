// functions.h - names of the browser runtime's functions that are called.
#pragma once

// All that is called of the runtime. One that is missing makes the whole runtime unusable.
#define PENNYWORT_CEF_FUNCTIONS(X)           \
    X(cef_api_hash)                          \
    X(cef_version_info)                      \
    X(cef_get_exit_code)                     \
    X(cef_initialize)                        \
    X(cef_shutdown)                          \
    X(cef_do_message_loop_work)              \
    X(cef_execute_process)                   \
    X(cef_currently_on)                      \
    X(cef_post_task)                         \
    X(cef_browser_host_create_browser)       \
    X(cef_cookie_manager_get_global_manager) \
    X(cef_dictionary_value_create)           \
    X(cef_process_message_create)            \
    X(cef_string_utf8_to_utf16)              \
    X(cef_string_utf16_to_utf8)              \
    X(cef_string_utf16_clear)                \
    X(cef_string_utf8_clear)                 \
    X(cef_string_userfree_utf16_free)        \
    X(cef_v8_context_get_current_context)    \
    X(cef_v8_value_create_function)          \
    X(cef_v8_value_create_object)
