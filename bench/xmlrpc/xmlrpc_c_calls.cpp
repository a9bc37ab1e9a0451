// xmlrpc_c_calls.cpp - the same with xmlrpc-c's client, over libcurl as ours.
#include <xmlrpc-c/base.h>
#include <xmlrpc-c/client.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    using clock = std::chrono::steady_clock;
    xmlrpc_env env;
    xmlrpc_env_init(&env);
    xmlrpc_client_setup_global_const(&env);
    xmlrpc_client* client = nullptr;
    xmlrpc_client_create(&env, XMLRPC_CLIENT_NO_FLAGS, "bench", "1", nullptr, 0, &client);
    xmlrpc_server_info* const server = xmlrpc_server_info_new(&env, argv[1]);
    const auto start = clock::now();
    const auto end = start + std::chrono::seconds(std::atoi(argv[2]));
    long count = 0;
    for (; clock::now() < end; ++count) {
        xmlrpc_value* result = nullptr;
        xmlrpc_client_call2f(&env, client, argv[1], "validator1.simpleStructReturnTest", &result,
                             "(i)", 7);
        if (env.fault_occurred != 0) return 1;
        xmlrpc_value* member = nullptr;
        xmlrpc_struct_find_value(&env, result, "times10", &member);
        int number = 0;
        xmlrpc_read_int(&env, member, &number);
        xmlrpc_DECREF(member);
        xmlrpc_DECREF(result);
        if (number != 70) return 1;
    }
    const std::chrono::duration<double> took = clock::now() - start;
    std::printf("calls %.0f\n", static_cast<double>(count) / took.count());
    xmlrpc_server_info_free(server);
    xmlrpc_client_destroy(client);
}
