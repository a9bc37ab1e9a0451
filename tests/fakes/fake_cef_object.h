// fake_cef_object.h - counted objects of the fake runtime, and its references to the caller's
// structs.
#pragma once

#include <atomic>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

#include "tests/fakes/fake_cef_ledger.h"

namespace fake {

// Objects whose last reference has gone stay in memory for a while, so that a call of one is seen
// and reported instead of corrupting the heap.
class graveyard {
public:
    static graveyard& ground();
    void bury(std::function<void()> free_it);

private:
    std::mutex m_lock;
    std::deque<std::function<void()>> m_graves;
};

// Fills the operations of a struct that the fake does not have: one that is called all the same
// stops the test with a sentence instead of a jump to 0.
void fill_lacking(void* first_operation, std::size_t bytes);

// An object `Self` with the C struct `Struct` at its front, counted from 1.
template <class Self, class Struct>
class object : public Struct {
public:
    object(const object&) = delete;
    object& operator=(const object&) = delete;

    // The object that the caller means. One that is dead is reported.
    static Self& of(Struct* api) {
        Self* self = static_cast<Self*>(api);
        if (self->m_count.load() <= 0) {
            ledger::book().broken(std::string("a ") + self->m_called +
                                  " was used after its last release");
        }
        return *self;
    }
    // The struct with one more reference, for a result or an argument.
    Struct* counted() {
        add_one(&this->base);
        return this;
    }
    // Gives the maker's reference away.
    Struct* given() { return this; }
    void drop() { release_one(&this->base); }

protected:
    explicit object(const char* kind) : Struct{}, m_called(kind) {
        auto* bytes = reinterpret_cast<unsigned char*>(static_cast<Struct*>(this));
        constexpr std::size_t k_base = sizeof(cef_base_ref_counted_t);
        fill_lacking(bytes + k_base, sizeof(Struct) - k_base);
        this->base.size = sizeof(Struct);
        this->base.add_ref = &add_one;
        this->base.release = &release_one;
        this->base.has_one_ref = [](cef_base_ref_counted_t* b) {
            return self_of(b).m_count == 1 ? 1 : 0;
        };
        this->base.has_at_least_one_ref = [](cef_base_ref_counted_t* b) {
            return self_of(b).m_count >= 1 ? 1 : 0;
        };
        ledger::book().born(m_called);
    }
    ~object() = default;

private:
    static object& self_of(cef_base_ref_counted_t* base) {
        return static_cast<object&>(*reinterpret_cast<Struct*>(base));
    }
    static void add_one(cef_base_ref_counted_t* base) {
        if (self_of(base).m_count.fetch_add(1) > 0) return;
        ledger::book().broken(std::string("a dead ") + self_of(base).m_called + " was referenced");
    }
    static int release_one(cef_base_ref_counted_t* base) {
        object& self = self_of(base);
        const int before = self.m_count.fetch_sub(1);
        if (before > 1) return 0;
        if (before < 1) {
            ledger::book().broken(std::string("a ") + self.m_called + " was released too often");
            return 0;
        }
        ledger::book().died(self.m_called);
        auto* dead = static_cast<Self*>(&self);
        dead->ended();
        graveyard::ground().bury([dead] { delete dead; });
        return 1;
    }

    std::atomic<int> m_count{1};
    const char* m_called;
};

// A reference of an object of the fake.
template <class T>
class ref {
public:
    ref() = default;
    explicit ref(T* adopted) : m_object(adopted) {}
    ref(const ref& other) : m_object(other.m_object) {
        if (m_object) m_object->counted();
    }
    ref(ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ref& operator=(ref other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~ref() {
        if (m_object) m_object->drop();
    }
    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

// A reference of a struct of the caller's, which came with the pointer that it is made from.
template <class Struct>
class caller_ref {
public:
    caller_ref() = default;
    caller_ref(Struct* adopted, const char* kind) : m_struct(adopted), m_kind(kind) {
        if (!m_struct) return;
        ledger::book().taken(m_kind);
        check();
    }
    caller_ref(const caller_ref& other) : m_struct(other.m_struct), m_kind(other.m_kind) {
        if (!m_struct) return;
        ledger::book().taken(m_kind);
        m_struct->base.add_ref(&m_struct->base);
    }
    caller_ref(caller_ref&& other) noexcept
        : m_struct(std::exchange(other.m_struct, nullptr)), m_kind(other.m_kind) {}
    caller_ref& operator=(caller_ref other) noexcept {
        std::swap(m_struct, other.m_struct);
        std::swap(m_kind, other.m_kind);
        return *this;
    }
    ~caller_ref() {
        if (!m_struct) return;
        ledger::book().given_back(m_kind);
        m_struct->base.release(&m_struct->base);
    }
    Struct* get() const { return m_struct; }
    Struct* operator->() const { return m_struct; }
    explicit operator bool() const { return m_struct != nullptr; }

private:
    void check() {
        const auto& base = m_struct->base;
        if (base.size != sizeof(Struct)) {
            ledger::book().broken(std::string(m_kind) + " has the wrong size");
        }
        if (!base.add_ref || !base.release || !base.has_one_ref || !base.has_at_least_one_ref) {
            ledger::book().broken(std::string(m_kind) + " lacks a counting operation");
        } else if (!base.has_at_least_one_ref(&m_struct->base)) {
            ledger::book().broken(std::string(m_kind) + " was handed out without a reference");
        }
    }

    Struct* m_struct = nullptr;
    const char* m_kind = "";
};

}  // namespace fake
