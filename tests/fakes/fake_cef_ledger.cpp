// fake_cef_ledger.cpp - see the header.
#include "tests/fakes/fake_cef_ledger.h"

#include <utility>

namespace fake {

namespace {

std::string listed(const std::map<std::string, long>& counts) {
    std::string list;
    for (const auto& [kind, count] : counts) {
        if (count == 0) continue;
        list += (list.empty() ? "" : ", ") + kind + " " + std::to_string(count);
    }
    return list;
}

// Longer than any text of a test; a length beyond it is a length that nobody set.
constexpr std::size_t k_longest_text = std::size_t{1} << 28;

}  // namespace

// Never destroyed: the caller may give references back while the process's statics go away.
ledger& ledger::book() {
    static ledger& the_book = *new ledger;
    return the_book;
}

void ledger::broken(std::string rule) {
    const std::lock_guard lock(m_lock);
    // A rule broken at every step would fill the memory; the first thousand tell enough.
    if (m_violations.size() < 1000) m_violations.push_back(std::move(rule));
}

void ledger::late(std::string call) {
    const std::lock_guard lock(m_lock);
    if (m_late_calls.size() < 1000) m_late_calls.push_back(std::move(call));
}

std::vector<std::string> ledger::violations() {
    const std::lock_guard lock(m_lock);
    return m_violations;
}

std::vector<std::string> ledger::late_calls() {
    const std::lock_guard lock(m_lock);
    return m_late_calls;
}

void ledger::born(const char* kind) {
    const std::lock_guard lock(m_lock);
    ++m_alive[kind];
}

void ledger::died(const char* kind) {
    const std::lock_guard lock(m_lock);
    --m_alive[kind];
}

void ledger::taken(const char* kind) {
    const std::lock_guard lock(m_lock);
    ++m_held[kind];
}

void ledger::given_back(const char* kind) {
    const std::lock_guard lock(m_lock);
    --m_held[kind];
}

std::string ledger::leaks() {
    const std::lock_guard lock(m_lock);
    auto counts = m_alive;
    counts["string"] += static_cast<long>(m_strings.size());
    return listed(counts);
}

std::string ledger::held() {
    const std::lock_guard lock(m_lock);
    return listed(m_held);
}

void ledger::string_made(const void* text, std::size_t length) {
    const std::lock_guard lock(m_lock);
    m_strings[text] = length;
}

void ledger::string_freed(const void* text) {
    const std::lock_guard lock(m_lock);
    if (m_strings.erase(text) == 0) m_violations.push_back("a string was freed that is not there");
}

void ledger::check_string(const cef_string_t* text, const char* where) {
    if (!text) return;
    const std::lock_guard lock(m_lock);
    const auto known = m_strings.find(text->str);
    if (!text->str && text->length != 0) {
        m_violations.push_back(std::string(where) + ": a string without text has a length");
    } else if (text->length > k_longest_text) {
        m_violations.push_back(std::string(where) + ": a string's length is not set");
    } else if (known != m_strings.end() && known->second < text->length) {
        m_violations.push_back(std::string(where) + ": a string is longer than its text");
    }
}

void ledger::hash_was_asked() {
    const std::lock_guard lock(m_lock);
    m_hash_asked = true;
}

void ledger::entered(const char* function) {
    const std::lock_guard lock(m_lock);
    if (m_hash_asked) return;
    m_violations.push_back(std::string(function) + " was called before cef_api_hash");
}

}  // namespace fake
