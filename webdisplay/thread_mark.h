// thread_mark.h - notes for the length of a scope that the calling thread stands in it.
#pragma once

#include <utility>

namespace pennywort::webdisplay {

// `mark` is thread_local. Scopes may stand in each other.
class thread_mark {
public:
    explicit thread_mark(bool& mark) : m_mark(mark), m_was_set(std::exchange(mark, true)) {}
    thread_mark(const thread_mark&) = delete;
    thread_mark& operator=(const thread_mark&) = delete;
    ~thread_mark() { m_mark = m_was_set; }

private:
    bool& m_mark;
    const bool m_was_set;
};

}  // namespace pennywort::webdisplay
