// validator_server_linux.cpp - the methods of the validator1 suite over xmlrpc-c: its HTTP server,
// its parser and its writer. Prints the port of 127.0.0.1 that it serves, and runs until it is
// killed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <xmlrpc-c/base.h>
#include <xmlrpc-c/server.h>
#include <xmlrpc-c/server_abyss.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

struct value_release {
    void operator()(xmlrpc_value* value) const { xmlrpc_DECREF(value); }
};
using owned_value = std::unique_ptr<xmlrpc_value, value_release>;

struct text_release {
    void operator()(const void* text) const { std::free(const_cast<void*>(text)); }
};
using owned_text = std::unique_ptr<const char, text_release>;
using owned_bytes = std::unique_ptr<const unsigned char, text_release>;

// The only parameter. A fault in `env` when there is another number of them.
owned_value only_param(xmlrpc_env* env, xmlrpc_value* params) {
    xmlrpc_value* value = nullptr;
    xmlrpc_decompose_value(env, params, "(V)", &value);
    return owned_value(value);
}

owned_value item_at(xmlrpc_env* env, xmlrpc_value* array, int index) {
    xmlrpc_value* item = nullptr;
    xmlrpc_array_read_item(env, array, static_cast<unsigned>(index), &item);
    return owned_value(item);
}

std::string text_at(xmlrpc_env* env, xmlrpc_value* array, int index) {
    const owned_value item = item_at(env, array, index);
    if (item == nullptr) return {};
    const char* text = nullptr;
    xmlrpc_read_string(env, item.get(), &text);
    const owned_text owner(text);
    return text == nullptr ? "" : text;
}

xmlrpc_value* number(xmlrpc_env* env, xmlrpc_int32 sum) {
    return env->fault_occurred != 0 ? nullptr : xmlrpc_int_new(env, sum);
}

xmlrpc_value* array_of_structs(xmlrpc_env* env, xmlrpc_value* params, void*) {
    const owned_value array = only_param(env, params);
    const int count = array == nullptr ? 0 : xmlrpc_array_size(env, array.get());
    xmlrpc_int32 sum = 0;
    for (int i = 0; i < count && env->fault_occurred == 0; ++i) {
        xmlrpc_int32 curly = 0;
        const owned_value item = item_at(env, array.get(), i);
        xmlrpc_decompose_value(env, item.get(), "{s:i,*}", "curly", &curly);
        sum += curly;
    }
    return number(env, sum);
}

xmlrpc_value* count_the_entities(xmlrpc_env* env, xmlrpc_value* params, void*) {
    const std::string text = text_at(env, params, 0);
    const auto count = [&text](char c) {
        return static_cast<xmlrpc_int32>(std::count(text.begin(), text.end(), c));
    };
    if (env->fault_occurred != 0) return nullptr;
    return xmlrpc_build_value(env, "{s:i,s:i,s:i,s:i,s:i}", "ctLeftAngleBrackets", count('<'),
                              "ctRightAngleBrackets", count('>'), "ctAmpersands", count('&'),
                              "ctApostrophes", count('\''), "ctQuotes", count('"'));
}

xmlrpc_value* easy_struct(xmlrpc_env* env, xmlrpc_value* params, void*) {
    xmlrpc_int32 moe = 0;
    xmlrpc_int32 larry = 0;
    xmlrpc_int32 curly = 0;
    xmlrpc_decompose_value(env, params, "({s:i,s:i,s:i,*})", "moe", &moe, "larry", &larry, "curly",
                           &curly);
    return number(env, moe + larry + curly);
}

xmlrpc_value* echo_struct(xmlrpc_env* env, xmlrpc_value* params, void*) {
    xmlrpc_value* made = nullptr;
    xmlrpc_decompose_value(env, params, "(S)", &made);
    return made;
}

xmlrpc_value* many_types(xmlrpc_env* env, xmlrpc_value* params, void*) {
    xmlrpc_int32 whole = 0;
    xmlrpc_bool flag = 0;
    const char* text = nullptr;
    double real = 0;
    const char* date = nullptr;
    const unsigned char* bytes = nullptr;
    std::size_t size = 0;
    xmlrpc_decompose_value(env, params, "(ibsd86)", &whole, &flag, &text, &real, &date, &bytes,
                           &size);
    if (env->fault_occurred != 0) return nullptr;
    const owned_text text_owner(text);
    const owned_text date_owner(date);
    const owned_bytes bytes_owner(bytes);
    return xmlrpc_build_value(env, "(ibsd86)", whole, flag, text, real, date, bytes, size);
}

xmlrpc_value* moderate_size_array(xmlrpc_env* env, xmlrpc_value* params, void*) {
    const owned_value array = only_param(env, params);
    if (array == nullptr) return nullptr;
    const int count = xmlrpc_array_size(env, array.get());
    const std::string both = text_at(env, array.get(), 0) + text_at(env, array.get(), count - 1);
    return env->fault_occurred != 0 ? nullptr : xmlrpc_string_new(env, both.c_str());
}

xmlrpc_value* nested_struct(xmlrpc_env* env, xmlrpc_value* params, void*) {
    xmlrpc_int32 moe = 0;
    xmlrpc_int32 larry = 0;
    xmlrpc_int32 curly = 0;
    xmlrpc_decompose_value(env, params, "({s:{s:{s:{s:i,s:i,s:i,*},*},*},*})", "2000", "04", "01",
                           "moe", &moe, "larry", &larry, "curly", &curly);
    return number(env, moe + larry + curly);
}

xmlrpc_value* simple_struct_return(xmlrpc_env* env, xmlrpc_value* params, void*) {
    xmlrpc_int32 given = 0;
    xmlrpc_decompose_value(env, params, "(i)", &given);
    if (env->fault_occurred != 0) return nullptr;
    return xmlrpc_build_value(env, "{s:i,s:i,s:i}", "times10", given * 10, "times100", given * 100,
                              "times1000", given * 1000);
}

struct method {
    const char* name;
    xmlrpc_method1 call;
};
constexpr method k_methods[] = {
    {"validator1.arrayOfStructsTest", array_of_structs},
    {"validator1.countTheEntities", count_the_entities},
    {"validator1.easyStructTest", easy_struct},
    {"validator1.echoStructTest", echo_struct},
    {"validator1.manyTypesTest", many_types},
    {"validator1.moderateSizeArrayCheck", moderate_size_array},
    {"validator1.nestedStructTest", nested_struct},
    {"validator1.simpleStructReturnTest", simple_struct_return},
};

// Listens already: who has read the port can connect.
int listening_socket() {
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (bind(made, plain, size) != 0 || listen(made, SOMAXCONN) != 0) return -1;
    if (getsockname(made, plain, &size) != 0) return -1;
    std::printf("%d\n", ntohs(address.sin_port));
    return std::fflush(stdout) == 0 ? made : -1;
}

}  // namespace

int main() {
    xmlrpc_env env;
    xmlrpc_env_init(&env);
    xmlrpc_server_abyss_global_init(&env);
    xmlrpc_registry* const registry = xmlrpc_registry_new(&env);
    for (const method& each : k_methods) {
        xmlrpc_registry_add_method(&env, registry, nullptr, each.name, each.call, nullptr);
    }
    xmlrpc_server_abyss_parms how{};
    how.registryP = registry;
    how.socket_bound = 1;
    how.socket_handle = listening_socket();
    if (how.socket_handle < 0 || env.fault_occurred != 0) return 1;
    xmlrpc_server_abyss(&env, &how, XMLRPC_APSIZE(socket_handle));
    std::fprintf(stderr, "%s\n", env.fault_string == nullptr ? "ended" : env.fault_string);
    return 1;
}
