// link_test_linux.cpp - the conversation with the kernel, whose part a test plays over a pair of
// sockets.
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "core/limits.h"
#include "firewall/netlink_bytes.h"
#include "firewall/nf_link.h"

namespace pennywort::tests {
namespace {

using firewall::k_rules_changed;
using firewall::nf_link;

// The first request of a link has this number.
constexpr std::uint32_t k_first = 1;

std::string message(std::uint16_t type, const std::string& content, std::uint16_t flags = 0,
                    std::uint32_t sequence = k_first) {
    nlmsghdr head{};
    head.nlmsg_len = static_cast<std::uint32_t>(sizeof head + content.size());
    head.nlmsg_type = type;
    head.nlmsg_flags = flags;
    head.nlmsg_seq = sequence;
    std::string bytes(reinterpret_cast<const char*>(&head), sizeof head);
    bytes += content;
    bytes.append(NLMSG_ALIGN(content.size()) - content.size(), '\0');
    return bytes;
}

std::string number(std::int32_t value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}
std::string done(std::int32_t result = 0, std::uint16_t flags = 0) {
    return message(NLMSG_DONE, number(result), flags);
}
std::string refused(int error) { return message(NLMSG_ERROR, number(-error) + "request"); }

std::string request() { return firewall::nftables_request(1, NLM_F_REQUEST, 0); }

class LinkTest : public testing::Test {
protected:
    void SetUp() override {
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        m_kernel = ends[0];
        // No answer at all is known at once here: nothing is waited for.
        timeval bound{};
        bound.tv_usec = 1;
        ASSERT_EQ(::setsockopt(ends[1], SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound), 0);
        m_link = nf_link::over(ends[1]);
    }
    void TearDown() override {
        if (m_kernel >= 0) ::close(m_kernel);
    }
    void answer(const std::string& datagram) {
        ASSERT_EQ(::send(m_kernel, datagram.data(), datagram.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(datagram.size()));
    }
    outcome<std::string> ask() { return m_link->ask(request()); }

    int m_kernel = -1;
    std::unique_ptr<nf_link> m_link;
};

TEST_F(LinkTest, CollectsTheMessagesOfAllDatagrams) {
    const std::string one = message(0xa00, "abcde");
    const std::string two = message(0xa03, "fgh");
    answer(one + two);
    answer(one);
    answer(two + done());
    const auto answered = ask();
    ASSERT_TRUE(answered) << answered.text();
    EXPECT_EQ(answered.value(), one + two + one + two);
}

TEST_F(LinkTest, SendsTheRequestWithANumberOfItsOwn) {
    answer(done());
    ASSERT_TRUE(ask());
    char sent[64];
    const ssize_t size = ::recv(m_kernel, sent, sizeof sent, 0);
    std::string expected = request();
    firewall::set_sequence(expected, k_first);
    EXPECT_EQ(std::string(sent, static_cast<std::size_t>(size)), expected);
}

TEST_F(LinkTest, PassesOverAnswersToOthers) {
    const std::string one = message(0xa00, "mine");
    answer(message(0xa00, "late", 0, k_first + 7) + one);
    answer(message(NLMSG_DONE, number(0), 0, k_first + 7));
    answer(done());
    const auto answered = ask();
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered.value(), one);
}

TEST_F(LinkTest, AnAcknowledgementEndsAnAnswer) {
    answer(message(0xa0f, "count"));
    answer(refused(0));
    const auto answered = ask();
    ASSERT_TRUE(answered);
    EXPECT_EQ(answered.value(), message(0xa0f, "count"));
}

struct refusal_case {
    int error;
    zStatus status;
    const char* words;
};

TEST_F(LinkTest, SaysWhyTheKernelRefused) {
    const refusal_case cases[] = {
        {EPERM, k_failed, "no right to read the rules, which takes root or CAP_NET_ADMIN"},
        {EINVAL, k_failed, "this kernel has no nftables"},
        {EOPNOTSUPP, k_failed, "this kernel has no nftables"},
        {EINTR, k_rules_changed, "the rules change all the time"},
        {ENOENT, k_rules_changed, "the rules change all the time"},
        {ENOMEM, k_failed, "reading the rules failed: Cannot allocate memory"},
    };
    std::uint32_t sequence = k_first;
    for (const refusal_case& c : cases) {
        answer(message(NLMSG_ERROR, number(-c.error), 0, sequence++));
        const auto answered = ask();
        EXPECT_EQ(answered.status(), c.status);
        EXPECT_EQ(answered.text(), c.words);
    }
}

TEST_F(LinkTest, AnErrorAtTheEndOfAListIsOne) {
    answer(message(0xa00, "one") + done(-ENOMEM));
    EXPECT_EQ(ask().text(), "reading the rules failed: Cannot allocate memory");
}

TEST_F(LinkTest, AnEndThatIsCutIsAnError) {
    answer(message(NLMSG_DONE, ""));
    EXPECT_EQ(ask().text(), "reading the rules failed: Bad message");
}

TEST_F(LinkTest, ToldOfAChangeItSaysSoOnce) {
    answer(message(0xa00, "one", NLM_F_DUMP_INTR));
    answer(done());
    EXPECT_EQ(ask().status(), k_rules_changed);
    answer(message(0xa00, "one", 0, k_first + 1) + message(NLMSG_DONE, number(0), 0, k_first + 1));
    EXPECT_TRUE(ask());
}

TEST_F(LinkTest, ADatagramThatIsTooLongIsCut) {
    answer(message(0xa00, std::string(k_netlink_buffer_bytes, 'a')));
    EXPECT_EQ(ask().text(), "an answer is cut");
}

TEST_F(LinkTest, SilenceEnds) { EXPECT_EQ(ask().text(), "the kernel does not answer"); }

TEST_F(LinkTest, AnEndedConversationEnds) {
    ::shutdown(m_kernel, SHUT_WR);
    EXPECT_EQ(ask().text(), "an answer is cut");
}

}  // namespace
}  // namespace pennywort::tests
