// fake_cef_exports.h - what the fake runtime exports, each function with the type that the runtime
// has.
#pragma once

#include "cef_abi.h"
#include "pennywort_export.h"
#include "webdisplay/cef/functions.h"

// What the product calls, and what the runtime has besides, for what the fake is built of.
#define FAKE_CEF_EXPORTS(X)            \
    PENNYWORT_CEF_FUNCTIONS(X)         \
    X(cef_post_delayed_task)           \
    X(cef_list_value_create)           \
    X(cef_string_utf16_set)            \
    X(cef_string_utf16_cmp)            \
    X(cef_string_userfree_utf16_alloc) \
    X(cef_v8_value_create_string)

extern "C" {
#define FAKE_CEF_DECLARE(name) PENNYWORT_API cef_function::name name;
FAKE_CEF_EXPORTS(FAKE_CEF_DECLARE)
#undef FAKE_CEF_DECLARE
}
