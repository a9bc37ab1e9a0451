// loam/xml_element.cpp - see the header for the contract.
#include "loam/xml_element.h"

#include <cstdint>
#include <new>
#include <string>

#include "loam/record_state.h"
#include "loam/xml.h"

namespace loam {
namespace {

std::string_view text_of(const zRecord& element, std::uint64_t id) {
    const record_value* const value = record_access::state_of(element).variables.find(id);
    const auto* const text = value == nullptr ? nullptr : std::get_if<std::string>(&value->held);
    return text == nullptr ? std::string_view() : std::string_view(*text);
}

void set(zRecord& element, std::uint64_t id, std::string_view text) {
    element.SetText(id, text.data(), static_cast<std::uint32_t>(text.size()));
}

}  // namespace

std::string_view element_name(const zRecord& element) { return text_of(element, zXML::k_name); }

std::string_view element_text(const zRecord& element) { return text_of(element, zXML::k_text); }

zRecord* child_element(const zRecord* parent, std::string_view name) {
    if (parent == nullptr) return nullptr;
    for (zRecord* const each : record_access::state_of(*parent).children) {
        if (element_name(*each) == name) return each;
    }
    return nullptr;
}

zRecord* only_child(const zRecord* parent) {
    if (parent == nullptr) return nullptr;
    const auto& children = record_access::state_of(*parent).children;
    return children.size() == 1 ? children[0] : nullptr;
}

std::unique_ptr<zRecord> new_element(std::string_view name) {
    auto made = std::make_unique<zRecord>();
    set(*made, zXML::k_name, name);
    return made;
}

std::unique_ptr<zRecord> new_element(std::string_view name, std::string_view text) {
    auto made = new_element(name);
    if (!text.empty()) set(*made, zXML::k_text, text);
    return made;
}

zRecord& append(zRecord& parent, std::unique_ptr<zRecord> child) {
    if (parent.AddChild(child.get(), zRecord::k_at_end) != 0) throw std::bad_alloc();
    return *child.release();
}

zRecord& append_element(zRecord& parent, std::string_view name) {
    return append(parent, new_element(name));
}

}  // namespace loam
