// thrown_text.h - the words of an exception. Outside the exported classes: on Windows a handler
// that names an exception's type there would export that type.
#pragma once

#include <exception>
#include <string>

namespace pennywort::websocket {

// Runs `work`. False, with the words of what it has thrown, if it has.
template <typename work_type>
bool succeeds(work_type&& work, std::string& why) noexcept {
    try {
        work();
        return true;
    } catch (const std::exception& error) {
        try {
            why = error.what();
        } catch (...) {
            why.clear();
        }
    } catch (...) {
        why.clear();
    }
    return false;
}

}  // namespace pennywort::websocket
