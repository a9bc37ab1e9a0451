// notification.cpp - see the header for the contract.
#include "discovery/notification.h"

#include <algorithm>
#include <span>

#include "core/limits.h"
#include "discovery/dnssd_codes.h"

namespace pennywort::discovery {

namespace {

constexpr std::uint64_t k_what = 0x77686174;  // 'what'

using txt_bytes = std::span<const unsigned char>;

// Items that the library is shown at once.
constexpr std::size_t k_slice_items = 64;

// The bytes of the first so many items, and of what is no whole one behind them.
std::size_t slice_bytes(txt_bytes txt) {
    std::size_t end = 0;
    for (std::size_t i = 0; i < k_slice_items && end < txt.size(); ++i) end += txt[end] + 1u;
    return std::min(end, txt.size());
}

// Whatever is no end of the record is an item, one whose key does not fit its room too. Returns how
// many there were, `most` at most.
std::uint32_t read_items(txt_bytes txt, std::uint32_t most, cBonjourLib& library, zRecord& items) {
    for (std::uint32_t i = 0; i < most; ++i) {
        char key[k_max_txt_key] = "";
        std::uint8_t length = 0;
        const void* value = nullptr;
        const int error = library.TXTRecordGetItemAtIndex(static_cast<std::uint16_t>(txt.size()),
                                                          txt.data(), static_cast<std::uint16_t>(i),
                                                          sizeof key, key, &length, &value);
        if (error == k_dnssd_invalid) return i;
        key[sizeof key - 1] = '\0';
        if (value == nullptr) length = 0;
        items.SetText(key, static_cast<const char*>(value), length, 0);
    }
    return most;
}

// The library walks from the record's front to each item. A long record is shown to it in slices:
// without them one of many short items would hold the thread for seconds.
std::unique_ptr<zRecord> items_of(const resolved_service& resolved, cBonjourLib& library) {
    auto items = std::make_unique<zRecord>();
    txt_bytes left(resolved.txt, resolved.txt_length);
    std::uint32_t most = k_max_txt_items;
    while (!left.empty() && most > 0) {
        const txt_bytes slice = left.first(slice_bytes(left));
        most -= read_items(slice, most, library, *items);
        left = left.subspan(slice.size());
    }
    return items;
}

}  // namespace

std::unique_ptr<zRecord> make_notification(std::int32_t event, const zString& type,
                                           const char* name, const resolved_service& resolved,
                                           cBonjourLib& library) {
    auto record = std::make_unique<zRecord>();
    record->SetInt32(k_what, event, 0);
    record->SetCString("host", resolved.host, 0);
    record->SetCString("service", type.CString(), 0);
    record->SetInt32("port", resolved.port, 0);
    record->SetCString("name", name, 0);
    if (resolved.txt_length == 0) return record;
    auto items = items_of(resolved, library);
    if (record->AddChild(items.get(), zRecord::k_at_end) == 0) {
        static_cast<void>(items.release());  // the record's now
    }
    return record;
}

}  // namespace pennywort::discovery
