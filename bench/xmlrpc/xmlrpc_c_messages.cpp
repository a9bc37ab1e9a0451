// xmlrpc_c_messages.cpp - the same with xmlrpc-c: "read" parses to values, "write" makes XML of
// them.
#include <xmlrpc-c/base.h>

#include "bench/xmlrpc/measured.h"

namespace {

xmlrpc_value* parsed(const std::string& xml) {
    xmlrpc_env env;
    xmlrpc_env_init(&env);
    xmlrpc_value* value = nullptr;
    int code = 0;
    const char* text = nullptr;
    xmlrpc_parse_response2(&env, xml.data(), xml.size(), &value, &code, &text);
    const bool has_failed = env.fault_occurred != 0;
    xmlrpc_env_clean(&env);
    return has_failed ? nullptr : value;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string xml = file_bytes(argv[1]);
    xmlrpc_limit_set(XMLRPC_XML_SIZE_LIMIT_ID, 1 << 30);
    measure("read", [&] {
        xmlrpc_value* const value = parsed(xml);
        if (value != nullptr) xmlrpc_DECREF(value);
        return value != nullptr ? xml.size() : 0;
    });
    xmlrpc_value* const value = parsed(xml);
    measure("write", [&] {
        xmlrpc_env env;
        xmlrpc_env_init(&env);
        xmlrpc_mem_block* const out = xmlrpc_mem_block_new(&env, 0);
        xmlrpc_serialize_response(&env, out, value);
        const std::size_t size = xmlrpc_mem_block_size(out);
        xmlrpc_mem_block_free(out);
        return size;
    });
    xmlrpc_DECREF(value);
}
