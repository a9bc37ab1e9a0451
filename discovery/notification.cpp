// notification.cpp - see the header for the contract.
#include "discovery/notification.h"

#include "core/limits.h"
#include "discovery/dnssd_codes.h"

namespace pennywort::discovery {

namespace {

constexpr std::uint64_t k_what = 0x77686174;  // 'what'

// Whatever is no end of the record is an item, one whose key does not fit its room too.
std::unique_ptr<zRecord> items_of(const resolved_service& resolved, cBonjourLib& library) {
    auto items = std::make_unique<zRecord>();
    for (std::uint32_t i = 0; i < k_max_txt_items; ++i) {
        char key[k_max_txt_key] = "";
        std::uint8_t length = 0;
        const void* value = nullptr;
        const int error = library.TXTRecordGetItemAtIndex(resolved.txt_length, resolved.txt,
                                                          static_cast<std::uint16_t>(i), sizeof key,
                                                          key, &length, &value);
        if (error == k_dnssd_invalid) break;
        key[sizeof key - 1] = '\0';
        if (value == nullptr) length = 0;
        items->SetText(key, static_cast<const char*>(value), length, 0);
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
