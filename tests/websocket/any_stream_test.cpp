// any_stream_test.cpp - reads and writes that the system does at once, and those that it has to
// wait for.
#include "websocket/link/any_stream.h"

#include <gtest/gtest.h>

#include <array>
#include <boost/asio/write.hpp>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/eventually.h"

namespace pennywort::websocket {
namespace {

using tests::eventually;

// What a handler was called with.
struct done_operation {
    error_code error;
    std::size_t size = 0;
};

class AnyStream : public testing::Test {
protected:
    AnyStream() {
        tcp::acceptor listener(m_loop.io, {net::ip::make_address("127.0.0.1"), 0});
        m_stream.socket().connect(listener.local_endpoint());
        listener.accept(m_peer);
        m_stream.begin_transfer();
    }

    void read() {
        m_stream.async_read_some(net::buffer(m_room), [this](error_code error, std::size_t size) {
            m_done.push_back({error, size});
            if (m_then) m_then();
        });
    }
    void write() {
        m_stream.async_write_some(net::buffer(m_bytes), [this](error_code error, std::size_t size) {
            m_done.push_back({error, size});
            if (m_then) m_then();
        });
    }
    // Begins it as a link does.
    void begin(const std::function<void()>& what) { m_loop.ready.run(what); }
    // One event of the system's.
    void turn() { EXPECT_EQ(m_loop.io.run_one_for(tests::k_patience), 1u); }
    void send_by_peer(const std::string& bytes) {
        net::write(m_peer, net::buffer(bytes));
        ASSERT_TRUE(eventually([&] { return m_stream.socket().available() == bytes.size(); }));
    }
    // What waits in both directions of the connection is gone behind this.
    void read_all_by_peer() {
        std::vector<char> room(1 << 20);
        m_peer.non_blocking(true);
        error_code error;
        while (m_peer.read_some(net::buffer(room), error) > 0) {
        }
    }

    loop::state m_loop;
    any_stream m_stream{m_loop};
    tcp_socket m_peer{m_loop.io};
    std::array<char, 4> m_room{};
    const std::string m_bytes = std::string(1 << 16, 'x');
    std::vector<done_operation> m_done;
    std::function<void()> m_then;
};

TEST_F(AnyStream, AWriteIsDoneWithoutATurnOfTheLoop) {
    begin([this] {
        write();
        // Not while it begins, though.
        EXPECT_TRUE(m_done.empty());
    });
    ASSERT_EQ(m_done.size(), 1u);
    EXPECT_FALSE(m_done[0].error);
    EXPECT_GT(m_done[0].size, 0u);
}

// Nobody would call the handler.
TEST_F(AnyStream, AWriteOutsideOfTheLoopTakesItsTurn) {
    write();
    EXPECT_TRUE(m_done.empty());
    turn();
    EXPECT_EQ(m_done.size(), 1u);
}

TEST_F(AnyStream, AWriteWithoutRoomWaitsForIt) {
    // The system's buffers grow for a while.
    bool is_full = false;
    for (int i = 0; i < 10'000 && !is_full; ++i) {
        m_done.clear();
        begin([this] { write(); });
        is_full = m_done.empty();
    }
    ASSERT_TRUE(is_full);
    ASSERT_TRUE(eventually([this] {
        read_all_by_peer();
        m_loop.io.poll();
        return !m_done.empty();
    }));
    EXPECT_FALSE(m_done[0].error) << m_done[0].error.message();
    EXPECT_GT(m_done[0].size, 0u);
}

// A peer that has filled the room has more.
TEST_F(AnyStream, AReadBehindAFullOneIsDoneWithoutATurnOfTheLoop) {
    send_by_peer("12345678");
    m_then = [this] {
        if (m_done.size() == 1) read();
    };
    begin([this] { read(); });
    EXPECT_TRUE(m_done.empty());
    turn();
    ASSERT_EQ(m_done.size(), 2u);
    EXPECT_FALSE(m_done[1].error);
    EXPECT_EQ(m_done[1].size, 4u);
    EXPECT_EQ(std::string(m_room.data(), 4), "5678");
}

TEST_F(AnyStream, AReadBehindAFullOneWaitsWhereNothingHasCome) {
    send_by_peer("1234");
    m_then = [this] {
        if (m_done.size() == 1) read();
    };
    begin([this] { read(); });
    turn();
    EXPECT_EQ(m_done.size(), 1u);
    send_by_peer("56");
    turn();
    ASSERT_EQ(m_done.size(), 2u);
    EXPECT_FALSE(m_done[1].error) << m_done[1].error.message();
    EXPECT_EQ(m_done[1].size, 2u);
}

// It would find nothing, as a rule.
TEST_F(AnyStream, AReadBehindAnotherOneTakesItsTurn) {
    send_by_peer("123");
    m_then = [this] {
        if (m_done.size() == 1) {
            send_by_peer("4567");
            read();
        }
    };
    begin([this] { read(); });
    turn();
    EXPECT_EQ(m_done.size(), 1u);
    turn();
    EXPECT_EQ(m_done.size(), 2u);
}

TEST_F(AnyStream, ALostConnectionIsAnErrorOfEachOfThem) {
    send_by_peer("1234");
    m_then = [this] {
        if (m_done.size() > 1) return;
        m_peer.close();
        read();
    };
    begin([this] { read(); });
    ASSERT_TRUE(eventually([this] {
        m_loop.io.poll();
        return m_done.size() == 2;
    }));
    EXPECT_EQ(m_done[1].error, net::error::eof);
}

class heard_writes final : public write_listener {
public:
    void wrote(std::size_t size) noexcept override { total += size; }

    std::size_t total = 0;
};

TEST_F(AnyStream, TellsOfWritesThatAreDoneAtOnceAndOfThoseThatWait) {
    heard_writes heard;
    m_stream.tell_of_writes(&heard);
    begin([this] { write(); });
    ASSERT_EQ(m_done.size(), 1u);
    EXPECT_EQ(heard.total, m_done[0].size);
    write();
    turn();
    ASSERT_EQ(m_done.size(), 2u);
    EXPECT_EQ(heard.total, m_done[0].size + m_done[1].size);
}

}  // namespace
}  // namespace pennywort::websocket
