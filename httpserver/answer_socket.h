// answer_socket.h - the socket that handlers get: the connection's own, with what passes over it
// watched while a handler answers.
#pragma once

#include <cstdint>
#include <memory>

#include "httpserver/answer_filter.h"
#include "loam/socket.h"

namespace pennywort::httpserver {

// A handler may keep it as long as its connection lives, and write when its call is over.
class answer_socket final : public zSocket {
public:
    explicit answer_socket(std::unique_ptr<zSocket> system) : m_system(std::move(system)) {}

    zSocket& system() { return *m_system; }

    // From here to end_answer all that is sent goes through `filter`, which is not owned.
    void begin_answer(answer_filter& filter);
    void end_answer();
    // Whether something of the answer could not be sent.
    bool has_failed() const { return m_has_failed; }

    zStatus Open(std::int32_t kind) override;
    zStatus Listen(std::int32_t backlog) override;
    zStatus Accept(zSocket** accepted, std::int32_t flags) override;
    zStatus Receive(char* buffer, std::int32_t size, std::int32_t* received) override;
    zStatus Send(const char* data, std::int32_t length, std::int32_t flags,
                 std::int32_t timeout) override;
    zStatus SendSome(const char* data, std::int32_t length, std::int32_t* sent) override;
    void MoreFollows() override;
    zStatus EndSending() override;
    bool IsOpen() const override;
    void Close() override;
    void Reset() override;

private:
    const std::unique_ptr<zSocket> m_system;
    answer_filter* m_filter = nullptr;
    bool m_has_failed = false;
};

}  // namespace pennywort::httpserver
