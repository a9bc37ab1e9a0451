// ref.h - an owning reference to an object of the runtime's C interface, or to one of ours.
#pragma once

#include <utility>

#include "cef_abi.h"

namespace pennywort::cef {

// Every counted struct of the runtime begins with its counting base.
inline void add_reference(void* counted) {
    auto* base = static_cast<cef_base_ref_counted_t*>(counted);
    base->add_ref(base);
}
inline void drop_reference(void* counted) {
    auto* base = static_cast<cef_base_ref_counted_t*>(counted);
    base->release(base);
}

// Holds one reference of a struct that the runtime made. Constructed from a pointer it takes over
// the reference that came with it, as results and arguments of the runtime do.
template <class T>
class ref {
public:
    ref() = default;
    explicit ref(T* adopted) noexcept : m_object(adopted) {}
    ref(const ref& other) noexcept : m_object(other.m_object) {
        if (m_object != nullptr) add_reference(m_object);
    }
    ref(ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ref& operator=(ref other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~ref() {
        if (m_object != nullptr) drop_reference(m_object);
    }

    // A second reference to an object that somebody else holds.
    static ref shared(T* borrowed) noexcept {
        if (borrowed != nullptr) add_reference(borrowed);
        return ref(borrowed);
    }

    T* get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }
    // Gives the reference away: to an argument of the runtime, which releases it.
    T* release() noexcept { return std::exchange(m_object, nullptr); }

private:
    T* m_object = nullptr;
};

// Whether both are the one browser. The runtime takes over the reference of an argument.
inline bool same_browser(cef_browser_t* one, cef_browser_t* other) {
    return one->is_same(one, ref<cef_browser_t>::shared(other).release()) != 0;
}

// The same for our own objects that the runtime calls back (CefBaseRefCounted).
template <class T>
class own {
public:
    own() = default;
    explicit own(T* adopted) noexcept : m_object(adopted) {}
    own(const own& other) noexcept : m_object(other.m_object) {
        if (m_object != nullptr) m_object->AddRef();
    }
    own(own&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    own& operator=(own other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~own() {
        if (m_object != nullptr) m_object->Release();
    }

    static own shared(T* borrowed) noexcept {
        if (borrowed != nullptr) borrowed->AddRef();
        return own(borrowed);
    }

    T* get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

}  // namespace pennywort::cef
