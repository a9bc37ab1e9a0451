// httpserver/whole_answer.cpp - see the header for the contract.
#include "httpserver/whole_answer.h"

#include <algorithm>
#include <utility>

namespace pennywort::httpserver {

whole_answer::whole_answer(std::string head, answer_parts parts, std::int64_t length)
    : m_head(std::move(head)), m_parts(std::move(parts)), m_length(length) {}

std::int64_t whole_answer::Size() { return static_cast<std::int64_t>(m_head.size()) + m_length; }

std::int32_t whole_answer::ReadAt(std::int64_t offset, char* into, std::int32_t size) {
    const auto head_size = static_cast<std::int64_t>(m_head.size());
    if (offset >= head_size) return read_body(offset - head_size, into, size);
    const auto count = static_cast<std::int32_t>(
        m_head.copy(into, static_cast<std::size_t>(size), static_cast<std::size_t>(offset)));
    return count + std::max(read_body(0, into + count, size - count), 0);
}

// A body may give more than it has told: a file may have grown since.
std::int32_t whole_answer::read_body(std::int64_t offset, char* into, std::int32_t size) {
    const auto wanted = static_cast<std::int32_t>(std::min<std::int64_t>(size, m_length - offset));
    if (wanted <= 0) return 0;
    if (m_parts.body != nullptr) {
        const std::int32_t read = m_parts.body->ReadAt(offset, into, wanted);
        return read <= wanted ? read : -1;
    }
    const std::string& text = m_parts.shared != nullptr ? *m_parts.shared : m_parts.text;
    return static_cast<std::int32_t>(
        text.copy(into, static_cast<std::size_t>(wanted), static_cast<std::size_t>(offset)));
}

}  // namespace pennywort::httpserver
