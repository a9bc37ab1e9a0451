// fuzz.h - what every fuzz target has: a name, one entry, and a way to say that an answer is wrong.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// A program holds all targets and runs the one that it is told: each program links the whole
// library.
class fuzz_target {
public:
    using looker = void (*)(const std::uint8_t* data, std::size_t size);

    fuzz_target(const char* name, looker entry) : m_name(name), m_look(entry), m_next(s_first) {
        s_first = this;
    }
    fuzz_target(const fuzz_target&) = delete;
    fuzz_target& operator=(const fuzz_target&) = delete;

    void look(const std::uint8_t* data, std::size_t size) const { m_look(data, size); }

    // Null where none has this name.
    static const fuzz_target* named(std::string_view name) {
        const fuzz_target* target = s_first;
        while (target != nullptr && target->m_name != name) target = target->m_next;
        return target;
    }

private:
    std::string_view m_name;
    looker m_look;
    const fuzz_target* m_next;
    inline static const fuzz_target* s_first = nullptr;
};

inline void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}
