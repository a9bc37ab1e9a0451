// ready_operations.h - operations that have succeeded while they were begun. Their handlers are
// called as soon as what began them has returned; otherwise each would take a turn of the system's
// event queue, a call of the system for every message.
#pragma once

#include <boost/system/error_code.hpp>
#include <cstddef>
#include <exception>
#include <memory>
#include <utility>

#include "core/limits.h"

namespace pennywort::websocket {

// Threads: the one that runs the loop.
class ready_operations {
public:
    ready_operations() = default;
    ready_operations(const ready_operations&) = delete;
    ready_operations& operator=(const ready_operations&) = delete;
    ~ready_operations() { drop_all(); }

    // Calls `work`, then the handlers of all that has succeeded meanwhile. What the first of them
    // throws comes out here, behind the last.
    template <typename work>
    void run(work&& what) {
        if (m_is_running) return what();
        m_is_running = true;
        m_turns = k_max_websocket_turns;
        std::exception_ptr thrown;
        call(what, thrown);
        while (m_first != nullptr) {
            const std::unique_ptr<operation> next = take();
            call([&] { next->complete(); }, thrown);
        }
        m_is_running = false;
        if (thrown != nullptr) std::rethrow_exception(thrown);
    }
    // False outside of run(), where nobody would call the handler, and after so many in a row that
    // the loop's other events have waited long enough.
    bool takes_more() const { return m_is_running && m_turns > 0; }
    // Throws without memory, and has not taken the handler then.
    template <typename handler>
    void add(handler& done, boost::system::error_code error, std::size_t size) {
        auto added = std::make_unique<operation_of<handler>>(done, error, size);
        --m_turns;
        (m_last == nullptr ? m_first : m_last->next) = added.get();
        m_last = added.release();
    }

private:
    struct operation {
        operation() = default;
        operation(const operation&) = delete;
        operation& operator=(const operation&) = delete;
        virtual ~operation() = default;
        virtual void complete() = 0;

        operation* next = nullptr;
    };

    template <typename handler>
    struct operation_of final : operation {
        operation_of(handler& whose, boost::system::error_code its_error, std::size_t its_size)
            : done(std::move(whose)), error(its_error), size(its_size) {}
        void complete() override {
            handler taken(std::move(done));
            taken(error, size);
        }

        handler done;
        boost::system::error_code error;
        std::size_t size;
    };

    template <typename work>
    static void call(work&& what, std::exception_ptr& thrown) noexcept {
        try {
            what();
        } catch (...) {
            if (thrown == nullptr) thrown = std::current_exception();
        }
    }
    std::unique_ptr<operation> take() noexcept {
        std::unique_ptr<operation> taken(m_first);
        m_first = taken->next;
        if (m_first == nullptr) m_last = nullptr;
        return taken;
    }
    void drop_all() noexcept {
        while (m_first != nullptr) take();
    }

    operation* m_first = nullptr;
    operation* m_last = nullptr;
    bool m_is_running = false;
    int m_turns = 0;
};

}  // namespace pennywort::websocket
