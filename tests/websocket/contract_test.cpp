// contract_test.cpp - cWebSocket itself: the order of its operations, handlers, copies, what is
// unset.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/collected_traces.h"
#include "tests/support/field_order.h"
#include "tests/support/slot_of.h"
#include "websocket.h"
#include "websocket/managed/impl.h"

namespace pennywort::tests {

struct of_socket {};
struct of_system {};
struct of_sharp {};
struct of_impl {};
std::vector<std::ptrdiff_t> places(of_socket);
std::vector<std::ptrdiff_t> places(of_system);
std::vector<std::ptrdiff_t> places(of_sharp);
std::vector<std::ptrdiff_t> places(of_impl);

template struct fields<of_socket, &cWebSocket::m_error_handler, &cWebSocket::m_opened_handler,
                       &cWebSocket::m_closed_handler, &cWebSocket::m_message_handler,
                       &cWebSocket::m_extras>;
template struct fields<of_system, &cWebSocket_WinHttp::m_session_handle,
                       &cWebSocket_WinHttp::m_connection_handle,
                       &cWebSocket_WinHttp::m_web_socket_handle, &cWebSocket_WinHttp::m_is_secure,
                       &cWebSocket_WinHttp::m_receive_thread, &cWebSocket_WinHttp::m_running>;
template struct fields<of_sharp, &cWebSocket_Sharp::m_impl, &cWebSocket_Sharp::m_log>;
template struct fields<of_impl, &cWebSocket_Sharp::Impl::m_socket,
                       &cWebSocket_Sharp::Impl::onOpened, &cWebSocket_Sharp::Impl::onClosed,
                       &cWebSocket_Sharp::Impl::onMessage, &cWebSocket_Sharp::Impl::onError>;

}  // namespace pennywort::tests

namespace {

using namespace pennywort::tests;
using Error = cWebSocket::Error;

// Gives tests the signals of a transport.
class bare_socket : public cWebSocket {
public:
    void Open(const char*, double) override {}
    void Send(const char*) override {}
    void Close() override {}
    void SendPing() override {}

    using cWebSocket::ReceiveBinary;
    using cWebSocket::ReceiveMessage;
    using cWebSocket::SignalError;
    using cWebSocket::SocketClosed;
    using cWebSocket::SocketOpened;
};

TEST(WebSocket, ValuesOfErrorsAreTheOnesHostsKnow) {
    EXPECT_EQ(static_cast<int>(Error::LibraryError), 1);
    EXPECT_EQ(static_cast<int>(Error::ConnectFailed), 2);
    EXPECT_EQ(static_cast<int>(Error::ConnectionLost), 3);
    EXPECT_EQ(static_cast<int>(Error::SendFailed), 4);
    EXPECT_EQ(static_cast<int>(Error::AbnormalClosure), 5);
}

// Hosts derive from it and are built with an earlier library.
TEST(WebSocket, HasItsOperationsInTheirOrder) {
    // The destructor comes first and takes two.
    std::size_t slot = 2;
    EXPECT_EQ(slot_of(&cWebSocket::Open), slot++);
    EXPECT_EQ(slot_of(&cWebSocket::Send), slot++);
    EXPECT_EQ(slot_of(&cWebSocket::Close), slot++);
    EXPECT_EQ(slot_of(&cWebSocket::SendPing), slot++);
}

bool ascends(const std::vector<std::ptrdiff_t>& places) {
    return !places.empty() && std::is_sorted(places.begin(), places.end(), std::less_equal<>());
}

TEST(WebSocket, HasItsFieldsInTheirOrder) {
    EXPECT_TRUE(ascends(places(of_socket())));
    EXPECT_TRUE(ascends(places(of_system())));
    EXPECT_TRUE(ascends(places(of_sharp())));
    EXPECT_TRUE(ascends(places(of_impl())));
}

TEST(WebSocket, DropsSignalsWithoutHandlers) {
    bare_socket socket;
    socket.SignalError(Error::SendFailed);
    socket.SocketOpened();
    socket.SocketClosed(std::nullopt, true);
    socket.ReceiveMessage("text");
    EXPECT_FALSE(socket.ReceiveBinary("b", 1));
    socket.SendBinary("b", 1);
}

TEST(WebSocket, HandsItselfOut) {
    const auto socket = std::make_shared<bare_socket>();
    std::shared_ptr<cWebSocket> given;
    socket->SetOpenedHandler([&](std::shared_ptr<cWebSocket> self) { given = std::move(self); });
    socket->SocketOpened();
    EXPECT_EQ(given, socket);
}

TEST(WebSocket, HandsItselfOutWithoutAnOwner) {
    bare_socket socket;
    cWebSocket* given = nullptr;
    socket.SetOpenedHandler([&](const std::shared_ptr<cWebSocket>& self) { given = self.get(); });
    socket.SocketOpened();
    EXPECT_EQ(given, &socket);
}

TEST(WebSocket, AHandlerMayReplaceItself) {
    bare_socket socket;
    std::vector<std::string> told;
    const std::string long_enough_to_be_allocated(100, 'x');
    socket.SetMessageHandler([&, kept = long_enough_to_be_allocated](const char* text) {
        socket.SetMessageHandler(
            [&](const char* later) { told.push_back("2" + std::string(later)); });
        told.push_back("1" + std::string(text) + kept.substr(0, 1));
    });
    socket.ReceiveMessage("a");
    socket.ReceiveMessage("b");
    EXPECT_EQ(told, (std::vector<std::string>{"1ax", "2b"}));
}

TEST(WebSocket, SettersDestroyTheOldHandler) {
    bare_socket socket;
    const auto held = std::make_shared<int>(0);
    socket.SetErrorHandler([held](Error) {});
    socket.SetClosedHandler([held](std::optional<Error>, bool) {});
    EXPECT_EQ(held.use_count(), 3);
    socket.SetErrorHandler(nullptr);
    socket.SetClosedHandler(nullptr);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(WebSocket, CopiesHaveHandlersAndOptions) {
    bare_socket socket;
    int errors = 0;
    std::string bytes;
    socket.SetErrorHandler([&](Error) { ++errors; });
    socket.SetBinaryHandler([&](const void* data, std::size_t size) {
        bytes.assign(static_cast<const char*>(data), size);
    });
    cWebSocketOptions options;
    options.maxMessageBytes = 7;
    socket.SetOptions(options);

    bare_socket copy(socket);
    bare_socket assigned;
    assigned = socket;
    options.maxMessageBytes = 8;
    socket.SetOptions(options);

    copy.SignalError(Error::SendFailed);
    assigned.SignalError(Error::SendFailed);
    EXPECT_EQ(errors, 2);
    EXPECT_TRUE(copy.ReceiveBinary("a\0b", 3));
    EXPECT_EQ(bytes, std::string("a\0b", 3));
    EXPECT_EQ(copy.Options().maxMessageBytes, 7);
    EXPECT_EQ(socket.Options().maxMessageBytes, 8);
    EXPECT_TRUE(socket.ReceiveBinary("c", 1));
}

TEST(WebSocket, WhatAHandlerThrowsIsTraced) {
    bare_socket socket;
    const pennywort::tests::collected_traces traces;
    socket.SetMessageHandler([](const char*) { throw std::runtime_error("of the host's"); });
    socket.ReceiveMessage("a");
    EXPECT_EQ(traces.text(), "cWebSocket: a handler threw: of the host's\n");
}

TEST(WebSocket, FactoryMakesTheAsynchronousTransport) {
    const auto socket = cWebSocket::Factory();
    ASSERT_NE(socket, nullptr);
    EXPECT_NE(dynamic_cast<cWebSocket_Sharp*>(socket.get()), nullptr);
}

TEST(WebSocket, BinaryWithoutASenderFails) {
    bare_socket socket;
    Error told = Error::None;
    socket.SetErrorHandler([&](Error error) { told = error; });
    socket.SendBinary("b", 1);
    EXPECT_EQ(told, Error::SendFailed);
}

}  // namespace
