// httpserver/answer_socket.cpp - see the header for the contract.
#include "httpserver/answer_socket.h"

#include <limits>
#include <string_view>

#include "core/limits.h"
#include "core/statuses.h"

namespace pennywort::httpserver {

void answer_socket::begin_answer(answer_filter& filter) {
    m_filter = &filter;
    m_has_failed = false;
}

void answer_socket::end_answer() { m_filter = nullptr; }

zStatus answer_socket::Open(std::int32_t kind) { return m_system->Open(kind); }

zStatus answer_socket::Listen(std::int32_t backlog) { return m_system->Listen(backlog); }

zStatus answer_socket::Accept(zSocket** accepted, std::int32_t flags) {
    return m_system->Accept(accepted, flags);
}

zStatus answer_socket::Receive(char* buffer, std::int32_t size, std::int32_t* received) {
    return m_system->Receive(buffer, size, received);
}

zStatus answer_socket::Send(const char* data, std::int32_t length, std::int32_t flags,
                            std::int32_t timeout) {
    if (m_filter == nullptr || data == nullptr || length <= 0) {
        return m_system->Send(data, length, flags, timeout);
    }
    const std::string_view out = m_filter->pass({data, static_cast<std::size_t>(length)});
    if (out.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        return k_failed;
    }
    const zStatus status =
        m_system->Send(out.data(), static_cast<std::int32_t>(out.size()), flags, timeout);
    if (status != k_ok) m_has_failed = true;
    return status;
}

// A filter cannot take back what there was no room for, so that in a strict server this waits.
zStatus answer_socket::SendSome(const char* data, std::int32_t length, std::int32_t* sent) {
    if (m_filter == nullptr || sent == nullptr || data == nullptr || length <= 0) {
        return m_system->SendSome(data, length, sent);
    }
    if (m_filter->is_strict()) {
        const zStatus status = Send(data, length, 0, k_send_timeout_ms);
        *sent = status == k_ok ? length : 0;
        return status;
    }
    const zStatus status = m_system->SendSome(data, length, sent);
    m_filter->pass({data, static_cast<std::size_t>(*sent)});
    return status;
}

void answer_socket::MoreFollows() { m_system->MoreFollows(); }

zStatus answer_socket::EndSending() { return m_system->EndSending(); }

bool answer_socket::IsOpen() const { return m_system->IsOpen(); }

void answer_socket::Close() { m_system->Close(); }

void answer_socket::Reset() { m_system->Reset(); }

}  // namespace pennywort::httpserver
