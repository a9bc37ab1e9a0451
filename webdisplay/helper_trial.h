// helper_trial.h - a trial run of the runtime's helper program, before the runtime is started: a
// helper that crashes or hangs would take the host with it.
// Twins: helper_trial_win.cpp, helper_trial_linux.cpp.
#pragma once

#include <string>
#include <string_view>

namespace pennywort::webdisplay {

// The option that a helper of ours is tried with: it loads the runtime and ends.
constexpr std::string_view k_self_check = "--self-check";
// What a helper of ours says before the reason why it would not work. The helper may be the host's
// own, which ends with any status when it is started like that, so only these words are a refusal.
constexpr std::string_view k_self_check_failed = "self-check failed: ";

enum class helper_end {
    fine,     // or it cannot be told
    refused,  // it cannot be run, or is ours and says that it would not work
    crashed,
    hung,
};
struct helper_trial {
    helper_end end = helper_end::fine;
    std::string how;  // unless it is fine, for the user
};

// Runs the helper `path` for at most 1 s. One that is still at work then, on a slow disk for
// instance, is fine; one that stands still hangs.
helper_trial try_helper(const std::string& path);

// What a helper that said `words` and ended by itself is to the host.
inline helper_trial verdict_on_words(std::string_view words) {
    if (!words.starts_with(k_self_check_failed)) return {};
    words.remove_prefix(k_self_check_failed.size());
    return {helper_end::refused, std::string(words.substr(0, words.find_first_of("\r\n")))};
}

}  // namespace pennywort::webdisplay
