// websocket/managed/spare_text.cpp - see the header for the contract.
#include "websocket/managed/spare_text.h"

#include <algorithm>
#include <array>
#include <mutex>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "loam/ready_mutex.h"
#include "websocket/class_names.h"

namespace pennywort::websocket {

namespace {

struct kept_texts {
    loam::ready_mutex mutex;
    // One message that comes in, one in the handler, two that are on their way out.
    std::array<std::string, k_max_spare_texts> texts;
};

// Is not destroyed: the last connection may end while the process does. Takes no memory itself.
union kept_for_good {
    kept_for_good() : value() {}
    kept_for_good(const kept_for_good&) = delete;
    kept_for_good& operator=(const kept_for_good&) = delete;
    ~kept_for_good() {}

    kept_texts value;
};

kept_texts& kept() {
    static kept_for_good s_kept;
    return s_kept.value;
}

// The one that fits best; an empty one without any.
std::string best_fit(std::size_t size) {
    const std::lock_guard lock(kept().mutex);
    std::string* best = nullptr;
    for (std::string& one : kept().texts) {
        const bool fits = one.capacity() >= size;
        if (fits && (best == nullptr || one.capacity() < best->capacity())) best = &one;
    }
    std::string found;
    if (best != nullptr) found.swap(*best);
    return found;
}

}  // namespace

std::string spare_text::take(std::size_t size, std::size_t wish) {
    std::string text;
    if (wish >= k_long_text) text = best_fit(wish);
    const std::size_t wanted = text.capacity() < wish ? size : std::max(size, wish);
    if (text.size() < wanted) text.resize(wanted);
    return text;
}

std::string spare_text::copy_of(std::string_view text) {
    if (text.size() < k_long_text) return std::string(text);
    std::string copy = take(text.size(), text.size());
    copy.resize(text.size());
    text.copy(copy.data(), text.size());
    return copy;
}

// The shortest of those that are kept makes room.
void spare_text::give_back(std::string text) noexcept {
    if (text.capacity() < k_long_text || text.capacity() > k_max_spare_text_bytes) return;
    run::guarded(k_class_sharp, "keeping memory", [&] {
        const std::lock_guard lock(kept().mutex);
        auto& texts = kept().texts;
        const auto shortest = std::min_element(
            texts.begin(), texts.end(),
            [](const auto& one, const auto& other) { return one.capacity() < other.capacity(); });
        if (shortest->capacity() < text.capacity()) shortest->swap(text);
    });
}

void spare_text::drop_all() noexcept {
    run::guarded(k_class_sharp, "giving memory back", [] {
        const std::lock_guard lock(kept().mutex);
        for (std::string& one : kept().texts) std::string().swap(one);
    });
}

std::size_t spare_text::count() noexcept {
    const std::lock_guard lock(kept().mutex);
    const auto& texts = kept().texts;
    return static_cast<std::size_t>(std::count_if(
        texts.begin(), texts.end(), [](const auto& one) { return one.capacity() >= k_long_text; }));
}

}  // namespace pennywort::websocket
