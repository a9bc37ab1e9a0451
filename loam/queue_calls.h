// loam/queue_calls.h - the calls by which a loop reaches its thread's message queue, as tests can
// replace them; only loop_state_win.cpp and its tests use it, and there is no other half.
#pragma once

#include <windows.h>

namespace loam {

struct queue_calls {
    decltype(&::PostMessageW) post = &::PostMessageW;
    decltype(&::MsgWaitForMultipleObjectsEx) wait = &::MsgWaitForMultipleObjectsEx;
};

// Those in use. Replaced only while no loop is at work.
queue_calls& queue_calls_in_use();

}  // namespace loam
