// txt_record.cpp - see the header for the contract; and the parts of cBonjour that need nothing of
// the network.
#include "discovery/txt_record.h"

#include <algorithm>

#include "bonjour.h"
#include "core/limits.h"

namespace pennywort::discovery {

bool is_txt_record(std::string_view bytes) {
    if (bytes.size() > k_max_txt_record) return false;
    while (!bytes.empty()) {
        const std::size_t item = static_cast<unsigned char>(bytes[0]);
        if (item >= bytes.size()) return false;
        bytes.remove_prefix(item + 1);
    }
    return true;
}

bool is_txt_key(std::string_view key) {
    return !key.empty() && std::all_of(key.begin(), key.end(),
                                       [](char c) { return c >= ' ' && c <= '~' && c != '='; });
}

namespace {

bool add_txt_item(zString& record, std::string_view key, const char* value, unsigned long length) {
    if (!is_txt_key(key) || length > k_max_txt_item) return false;
    std::string item(1, '\0');
    item += key;
    if (value != nullptr) item.append(1, '=').append(value, length);
    if (item.size() > k_max_txt_item + 1) return false;
    if (record.Length() + item.size() > k_max_txt_record) return false;
    item[0] = static_cast<char>(item.size() - 1);
    record += item;
    return true;
}

}  // namespace
}  // namespace pennywort::discovery

bool cBonjour::TXTAddItem(zString& record, const char* key, const void* value,
                          unsigned long length) {
    if (key == nullptr) return false;
    return pennywort::discovery::add_txt_item(record, key, static_cast<const char*>(value), length);
}

const char* cBonjour::TCPServiceType(zString& out, const char* name) {
    out.sprintf("_%s._tcp.", name == nullptr ? "" : name);
    return out.CString();
}
