// loop_state.h - the inside of a loop, for links alone.
#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include "websocket/link/loop.h"
#include "websocket/link/ready_operations.h"

namespace pennywort::websocket {

struct loop::state {
    // Run by one thread at a time, which saves locks.
    boost::asio::io_context io{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{
        io.get_executor()};
    ready_operations ready;
};

}  // namespace pennywort::websocket
