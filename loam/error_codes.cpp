// loam/error_codes.cpp - see the header for the contract.
#include "loam/error_codes.h"

#include <algorithm>
#include <list>
#include <mutex>
#include <string>
#include <string_view>

#include "loam/out_of_memory.h"
#include "loam/ready_mutex.h"

namespace {

struct code_range {
    std::int32_t first;
    std::int32_t last;
    std::string label;
};

struct code_registry {
    loam::ready_mutex mutex;
    std::list<code_range> ranges;  // a list, so that the labels that were returned stay in place
};

// Never destroyed: modules use it while static objects come and go.
code_registry& registered_ranges() {
    static auto* the_registry = new code_registry;
    return *the_registry;
}

zStatus registered(std::int32_t first, std::int32_t last, std::string_view label) {
    code_registry& all = registered_ranges();
    const std::lock_guard lock(all.mutex);
    const auto met = std::find_if(all.ranges.begin(), all.ranges.end(), [&](const code_range& r) {
        return r.first <= last && first <= r.last;
    });
    if (met == all.ranges.end()) {
        all.ranges.push_back({first, last, std::string(label)});
        return 0;
    }
    return met->first == first && met->last == last && met->label == label ? 0 : -1;
}

}  // namespace

zStatus zErrCodeManager::RegisterCodeRange(std::int32_t first, std::int32_t last,
                                           const char* label) {
    const std::string_view text = label == nullptr ? "" : label;
    if (first > last || text.empty()) return -1;
    return loam::unless_out_of_memory([&] { return registered(first, last, text); });
}

const char* zErrCodeManager::LabelFor(std::int32_t code) {
    code_registry& all = registered_ranges();
    const std::lock_guard lock(all.mutex);
    for (const code_range& range : all.ranges) {
        if (range.first <= code && code <= range.last) return range.label.c_str();
    }
    return "";
}
