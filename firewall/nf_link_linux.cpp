// nf_link_linux.cpp - see nf_link.h.
#include "firewall/nf_link.h"

#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "core/limits.h"
#include "firewall/netlink_bytes.h"

namespace pennywort::firewall {

namespace {

failure call_failure(const char* call, int error) {
    return {k_failed, std::string(call) + " failed: " + std::generic_category().message(error)};
}

// What the kernel says no with. A kernel without nftables calls their requests invalid.
failure refusal(int error) {
    switch (error) {
        case EPERM:
            return {k_failed, "no right to read the rules, which takes root or CAP_NET_ADMIN"};
        case EINVAL:
        case EOPNOTSUPP:
            return {k_failed, "this kernel has no nftables"};
        case EINTR:
        case ENOENT:
            return {k_rules_changed, "the rules change all the time"};
        default:
            return call_failure("reading the rules", error);
    }
}

class netlink final : public nf_link {
public:
    explicit netlink(int socket) : m_socket(socket), m_buffer(k_netlink_buffer_bytes) {}
    ~netlink() override { ::close(m_socket); }
    netlink(const netlink&) = delete;
    netlink& operator=(const netlink&) = delete;

    outcome<std::string> ask(std::string request) override {
        set_sequence(request, ++m_sequence);
        if (::send(m_socket, request.data(), request.size(), 0) < 0) {
            const int error = errno;
            return call_failure("send", error);
        }
        std::string answer;
        while (answer.size() <= k_max_rule_set_bytes) {
            const auto received = receive();
            if (!received) return received.why();
            const auto end = take(received.value(), answer);
            if (!end) continue;
            if (end->status != k_ok) return *end;
            return answer;
        }
        return failure{k_failed, "the rule set is too large"};
    }

private:
    outcome<bytes_view> receive() {
        ssize_t size = 0;
        int error = EINTR;
        while (error == EINTR) {
            size = ::recv(m_socket, m_buffer.data(), m_buffer.size(), MSG_TRUNC);
            error = size < 0 ? errno : 0;
        }
        if (error == EAGAIN) return failure{k_failed, "the kernel does not answer"};
        if (error != 0) return call_failure("recv", error);
        const auto length = static_cast<std::size_t>(size);
        if (length == 0 || length > m_buffer.size()) return failure{k_failed, "an answer is cut"};
        return bytes_view(m_buffer.data(), length);
    }

    // Adds what belongs to the answer. Returns how it ended, and nothing while more is to come.
    std::optional<failure> take(bytes_view received, std::string& answer) {
        message_reader all(received);
        for (netlink_message one; all.next(one);) {
            if (one.sequence != m_sequence) continue;
            if ((one.flags & NLM_F_DUMP_INTR) != 0) m_is_interrupted = true;
            if (one.type == NLMSG_DONE || one.type == NLMSG_ERROR) return end_of(one);
            const char* const begin = one.content.data() - sizeof(nlmsghdr);
            const std::size_t length = sizeof(nlmsghdr) + one.content.size();
            answer.append(begin, length);
            answer.append(NLMSG_ALIGN(length) - length, '\0');
        }
        return std::nullopt;
    }

    // Both kinds of end begin with a number: 0, or the error below 0.
    failure end_of(const netlink_message& message) {
        std::int32_t error = -EBADMSG;
        if (message.content.size() >= sizeof error) {
            std::memcpy(&error, message.content.data(), sizeof error);
        }
        const bool was_interrupted = std::exchange(m_is_interrupted, false);
        if (error < 0) return refusal(-error);
        return was_interrupted ? refusal(EINTR) : failure{k_ok, {}};
    }

    const int m_socket;
    std::vector<char> m_buffer;
    std::uint32_t m_sequence = 0;
    bool m_is_interrupted = false;
};

// The kernel answers at once, or not at all.
bool bound_waits(int socket) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(k_max_kernel_silence);
    timeval bound{};
    bound.tv_sec = seconds.count();
    return ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound) == 0;
}

}  // namespace

outcome<std::unique_ptr<nf_link>> nf_link::open() {
    const int socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_NETFILTER);
    if (socket < 0) {
        const int error = errno;
        return error == EPROTONOSUPPORT || error == EAFNOSUPPORT
                   ? failure{k_failed, "this kernel has no packet filter"}
                   : call_failure("socket", error);
    }
    if (!bound_waits(socket)) {
        const int error = errno;
        ::close(socket);
        return call_failure("setsockopt", error);
    }
    return over(socket);
}

std::unique_ptr<nf_link> nf_link::over(int socket) {
    try {
        return std::make_unique<netlink>(socket);
    } catch (...) {
        ::close(socket);
        throw;
    }
}

}  // namespace pennywort::firewall
