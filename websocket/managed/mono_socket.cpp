// websocket/managed/mono_socket.cpp - see the header for the contract.
#include "websocket/managed/mono_socket.h"

#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "core/run/environment.h"
#include "loam/ready_mutex.h"
#include "websocket/link/valid_text.h"
#include "websocket/managed/mono_runtime.h"
#include "websocket/managed/spare_text.h"

namespace pennywort::websocket {

namespace {

// The managed side names an owner by a number, which tells of no address and is never used twice.
class owner_table final : public mono_events {
public:
    std::int64_t add(const std::weak_ptr<managed_owner>& owner) {
        const std::lock_guard lock(m_mutex);
        m_owners[++m_last] = owner;
        return m_last;
    }
    std::shared_ptr<managed_owner> owner_of(std::int64_t number) override {
        const std::lock_guard lock(m_mutex);
        const auto found = m_owners.find(number);
        return found == m_owners.end() ? nullptr : found->second.lock();
    }
    // Nobody uses what long messages have left when there is no socket.
    void forget(std::int64_t number) override {
        const std::lock_guard lock(m_mutex);
        m_owners.erase(number);
        if (m_owners.empty()) spare_text::drop_all();
    }

private:
    loam::ready_mutex m_mutex;
    std::map<std::int64_t, std::weak_ptr<managed_owner>> m_owners;
    std::int64_t m_last = 0;
};

// Managed threads may tell something as long as the process lives.
owner_table& owners() {
    static auto* const table = new owner_table;
    return *table;
}

class mono_socket final : public managed_socket {
public:
    mono_socket(std::unique_ptr<mono_object> object, std::int64_t number)
        : m_object(std::move(object)), m_number(number) {}
    // What was never connected tells no close, which its owner would be forgotten with.
    ~mono_socket() override {
        if (!m_is_connecting) owners().forget(m_number);
    }

    void connect_async() override {
        check(m_object->begin());
        m_is_connecting = true;
    }
    void close_async() override { check(m_object->leave()); }
    // The runtime makes no string of what is no UTF-8.
    void send_text(std::string_view text) override { check(m_object->send_text(valid_text(text))); }
    void send_binary(std::string_view bytes) override { check(m_object->send_bytes(bytes)); }
    void ping() override { check(m_object->send_ping()); }

private:
    static void check(const std::string& words) {
        if (!words.empty()) throw std::runtime_error(words);
    }

    const std::unique_ptr<mono_object> m_object;
    const std::int64_t m_number;
    std::atomic<bool> m_is_connecting{false};
};

}  // namespace

std::string websocket_sharp_path() {
    return run::environment_variable("PENNYWORT_WEBSOCKET_SHARP");
}

std::shared_ptr<managed_socket> make_mono_socket(const std::string& assembly,
                                                 const managed_request& request,
                                                 const std::weak_ptr<managed_owner>& owner) {
    mono_runtime& runtime = mono_runtime::of(assembly, owners());
    const std::int64_t number = owners().add(owner);
    try {
        return std::make_shared<mono_socket>(runtime.make(number, request.url), number);
    } catch (...) {
        owners().forget(number);
        throw;
    }
}

}  // namespace pennywort::websocket
