// thread_name_test_linux.cpp - the thread that handlers run on, by the name that the system shows.
#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <string>

#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"

namespace {

std::string name_of_this_thread() {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

// Answers with the names of the threads that asked and that called it.
class naming_handler final : public cHttpHandler {
public:
    bool CanHandle(std::int32_t, const zString&, const zString&, const zString&,
                   const char*) override {
        m_asked_on = name_of_this_thread();
        return true;
    }
    zStatus Handle(zSocket* socket, std::int32_t, const zString&, const zString&, const zString&,
                   const char*) override {
        const std::string names = m_asked_on + ", " + name_of_this_thread();
        SendHeaders(socket, static_cast<std::int32_t>(names.size()), "text/plain");
        return SendString(socket, names.c_str());
    }

private:
    std::string m_asked_on;
};

// Of a longer name the system shows the first 15 bytes.
TEST(ServerThread, CallsItsHandlersUnderItsName) {
    const auto handler = make<naming_handler>();
    cHttpServer server(0, 4096);
    server.InstallHandler(*handler);
    EXPECT_EQ(get(server.ListenPort(), "/"), plain_answer("http server thr, http server thr"));
}

}  // namespace
