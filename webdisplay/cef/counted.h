// counted.h - turns a C++ object into the reference-counted callback structs that the runtime
// calls.
#pragma once

#include <atomic>
#include <utility>

#include "cef_abi.h"
#include "core/run/guarded.h"
#include "webdisplay/cef/ref.h"

namespace pennywort::cef {

// The one count of an object that may have several callback structs. It starts at 1: the maker's.
class CefBaseRefCounted {
public:
    CefBaseRefCounted() = default;
    CefBaseRefCounted(const CefBaseRefCounted&) = delete;
    CefBaseRefCounted& operator=(const CefBaseRefCounted&) = delete;

    void AddRef() const noexcept { m_references.fetch_add(1, std::memory_order_relaxed); }
    // True when it was the last reference; the object is gone then.
    bool Release() const noexcept {
        if (m_references.fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
        delete this;
        return true;
    }
    bool HasOneRef() const noexcept { return m_references.load(std::memory_order_acquire) == 1; }
    bool HasAtLeastOneRef() const noexcept {
        return m_references.load(std::memory_order_acquire) >= 1;
    }

protected:
    virtual ~CefBaseRefCounted();

private:
    mutable std::atomic<int> m_references{1};
};

// Runs the body of a callback: no exception may pass through the frames of the runtime, which
// called it.
template <class Result, class Body>
Result guarded(Result otherwise, const char* where, Body&& body) noexcept {
    return run::guarded_or(otherwise, where, "a callback", std::forward<Body>(body));
}
template <class Body>
void guarded(const char* where, Body&& body) noexcept {
    run::guarded(where, "a callback", std::forward<Body>(body));
}

// The callback struct `Struct` as a member of the object `Owner` that is called by it: handing it
// out costs no allocation, which matters since the runtime asks for the render handler at every
// frame.
template <class Struct, class Owner>
class callback_struct {
public:
    explicit callback_struct(Owner* owner) noexcept {
        m_parts.owner = owner;
        auto* base = reinterpret_cast<cef_base_ref_counted_t*>(&m_parts.c);
        base->size = sizeof(Struct);
        base->add_ref = [](cef_base_ref_counted_t* self) { of(self)->AddRef(); };
        base->release = [](cef_base_ref_counted_t* self) { return of(self)->Release() ? 1 : 0; };
        base->has_one_ref = [](cef_base_ref_counted_t* self) {
            return of(self)->HasOneRef() ? 1 : 0;
        };
        base->has_at_least_one_ref = [](cef_base_ref_counted_t* self) {
            return of(self)->HasAtLeastOneRef() ? 1 : 0;
        };
    }
    callback_struct(const callback_struct&) = delete;
    callback_struct& operator=(const callback_struct&) = delete;

    // The struct with one more reference, which its receiver releases.
    Struct* counted() noexcept {
        m_parts.owner->AddRef();
        return &m_parts.c;
    }
    Struct* operator->() noexcept { return &m_parts.c; }

    static Owner* of(void* self) noexcept { return static_cast<parts*>(self)->owner; }

private:
    struct parts {
        Struct c{};
        Owner* owner = nullptr;
    };
    parts m_parts;
};

}  // namespace pennywort::cef
