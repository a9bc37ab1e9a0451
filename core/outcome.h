// outcome.h - how an operation inside the library ended: with a value, or with a status and the
// words for it. At the public edge it becomes a zStatus.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "core/statuses.h"

namespace pennywort {

// Why something failed. Converts to an outcome of any type:
//     if (port == 0) return failure{k_failed, "no port"};
// A status of k_ok would contradict it and counts as k_failed.
struct failure {
    zStatus status = k_failed;
    std::string text;  // one line without a full stop; may be empty
};
inline zStatus status_of(const failure& why) { return why.status != k_ok ? why.status : k_failed; }

// A value may be one that can only be moved. To read the value of a failure is a mistake of ours
// and throws std::bad_optional_access.
template <typename value_type = void>
class [[nodiscard]] outcome {
public:
    outcome(value_type value) : m_value(std::move(value)) {}
    outcome(failure why) : m_why(std::move(why)) {}

    bool is_ok() const { return m_value.has_value(); }
    explicit operator bool() const { return is_ok(); }

    value_type& value() & { return m_value.value(); }
    const value_type& value() const& { return m_value.value(); }
    value_type&& value() && { return std::move(m_value).value(); }
    value_type* operator->() { return &m_value.value(); }
    const value_type* operator->() const { return &m_value.value(); }

    // k_ok, or the status of the failure.
    zStatus status() const { return is_ok() ? k_ok : status_of(m_why); }
    const std::string& text() const { return m_why.text; }
    // To pass a failure up unchanged: if (!opened) return std::move(opened).why();
    const failure& why() const& { return m_why; }
    failure&& why() && { return std::move(m_why); }

private:
    std::optional<value_type> m_value;
    failure m_why;
};

// Without a value: outcome<>() is a success.
template <>
class [[nodiscard]] outcome<void> {
public:
    outcome() = default;
    outcome(failure why) : m_why(std::move(why)) {}

    bool is_ok() const { return !m_why.has_value(); }
    explicit operator bool() const { return is_ok(); }

    zStatus status() const { return is_ok() ? k_ok : status_of(*m_why); }
    std::string text() const { return is_ok() ? std::string() : m_why->text; }
    const failure& why() const& { return m_why.value(); }
    failure&& why() && { return std::move(m_why).value(); }

private:
    std::optional<failure> m_why;
};

}  // namespace pennywort
