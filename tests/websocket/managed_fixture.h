// managed_fixture.h - an asynchronous socket, and what it tells.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "tests/websocket/event_log.h"
#include "websocket.h"

class ManagedFixture : public testing::Test {
protected:
    ManagedFixture() { m_events.listen_to(*m_socket); }

    event_log m_events;
    std::shared_ptr<cWebSocket> m_socket = cWebSocket::Factory();
};
