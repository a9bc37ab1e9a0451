// mono_runtime.h - the managed runtime in this process: opened at run time, all of its functions or
// none, with the assembly of ours and websocket-sharp in it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "websocket/managed/managed_socket.h"

namespace pennywort::websocket {

// A managed object that the other side keeps alive.
class mono_object {
public:
    mono_object(const mono_object&) = delete;
    mono_object& operator=(const mono_object&) = delete;
    virtual ~mono_object() = default;

    // Each runs a method of the object and returns the words of its exception, empty without one.
    virtual std::string begin() = 0;
    virtual std::string leave() = 0;
    virtual std::string send_text(std::string_view text) = 0;
    virtual std::string send_bytes(std::string_view bytes) = 0;
    virtual std::string send_ping() = 0;

protected:
    mono_object() = default;
};

// What the managed side tells of the owner that it was given. On its threads.
class mono_events {
public:
    virtual ~mono_events() = default;
    virtual std::shared_ptr<managed_owner> owner_of(std::int64_t number) = 0;
    virtual void forget(std::int64_t number) = 0;
};

// Threads: any; they are made known to the runtime on their first call.
class mono_runtime {
public:
    // The one of the process, which stays until its end. Throws std::runtime_error with the reason
    // when there is no runtime, or `assembly` is no websocket-sharp.
    static mono_runtime& of(const std::string& assembly, mono_events& events);

    mono_runtime(const mono_runtime&) = delete;
    mono_runtime& operator=(const mono_runtime&) = delete;
    virtual ~mono_runtime() = default;

    // Throws std::invalid_argument with the words of the managed exception.
    virtual std::unique_ptr<mono_object> make(std::int64_t owner, const std::string& url) = 0;

protected:
    mono_runtime() = default;
};

}  // namespace pennywort::websocket
