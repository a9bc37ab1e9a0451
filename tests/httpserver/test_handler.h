// test_handler.h - handlers that tests script.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "httpserver.h"

// A server's buffer that is full soon.
inline constexpr std::int32_t k_buffer = 4096;

// What a handler was given.
struct seen_call {
    std::int32_t method = 0;
    std::string path;
    std::string extension;
    std::string query;
    std::string request;
    std::string body;
    bool is_as_asked = false;  // CanHandle was given the same
};

// Takes requests whose path begins with `prefix` and answers each with its own text, after it has
// noted the call and run what the test wants to happen inside it.
class test_handler final : public cHttpHandler {
public:
    using step = std::function<void(zSocket* socket)>;

    explicit test_handler(std::string prefix, std::string text = "fine", step inside = {});

    bool CanHandle(std::int32_t method, const zString& path, const zString& extension,
                   const zString& query, const char* request) override;
    zStatus Handle(zSocket* socket, std::int32_t method, const zString& path,
                   const zString& extension, const zString& query, const char* body) override;

    std::vector<seen_call> calls() const;
    seen_call last() const;

private:
    const std::string m_prefix;
    const std::string m_text;
    const step m_inside;
    mutable std::mutex m_mutex;
    seen_call m_asked;
    std::vector<seen_call> m_calls;
};

// Takes the requests of one path, writes a head that tells `length` bytes, after what the test
// wants to happen before it, and hands over the body that the test makes.
class body_handler final : public cHttpHandler {
public:
    using maker = std::function<std::unique_ptr<cHttpBody>()>;

    body_handler(std::string path, std::int32_t length, maker make_body,
                 test_handler::step before = {});

    bool CanHandle(std::int32_t method, const zString& path, const zString& extension,
                   const zString& query, const char* request) override;
    std::unique_ptr<cHttpBody> HandleInPieces(zSocket* socket, std::int32_t method,
                                              const zString& path, const zString& extension,
                                              const zString& query, const char* body,
                                              zStatus& status) override;

private:
    const std::string m_path;
    const std::int32_t m_length;
    const maker m_make_body;
    const test_handler::step m_before;
};

// Gives a test's own reference back when the test is done with it.
template <typename handler>
class held {
public:
    explicit held(handler* one) : m_handler(one) {}
    held(const held&) = delete;
    held& operator=(const held&) = delete;
    ~held() { m_handler->Release(); }

    handler* operator->() const { return m_handler; }
    handler& operator*() const { return *m_handler; }

private:
    handler* m_handler;
};

template <typename handler, typename... arguments>
held<handler> make(arguments&&... given) {
    return held<handler>(new handler(std::forward<arguments>(given)...));
}

// What SendHeaders and SendString make of a text.
std::string plain_answer(const std::string& text);
