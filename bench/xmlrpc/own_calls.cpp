// own_calls.cpp - cXMLRPC calling a validator's server: own_calls URL SECONDS. Prints calls a
// second.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "loam/xmlrpc.h"
#include "xmlrpc.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    using clock = std::chrono::steady_clock;
    cXMLRPC client(argv[1], 30);
    zRecord call;
    zXMLRPC message(call);
    message.SetCall("validator1.simpleStructReturnTest");
    message.AddParam().SetInt32(7);
    const auto start = clock::now();
    const auto end = start + std::chrono::seconds(std::atoi(argv[2]));
    long count = 0;
    for (; clock::now() < end; ++count) {
        zBuffer body;
        zRecord response;
        zXMLRPC::Value result;
        std::int32_t number = 0;
        if (client.Request_Begin(&body, call, false) != 0) return 1;
        client.Request_BlockForResponse();
        if (client.Request_ResponseAsXML(response) != 0) return 1;
        client.Request_End();
        if (zXMLRPC(response).Result(result) != 0) return 1;
        if (result.Member("times10").AsInt32(number) != 0 || number != 70) return 1;
    }
    const std::chrono::duration<double> took = clock::now() - start;
    std::printf("calls %.0f\n", static_cast<double>(count) / took.count());
}
