// other_hash.cpp - a library that stands before the real browser runtime, which it is linked to,
// and answers another hash of its interface. Every other function is the runtime's own.
extern "C" __attribute__((visibility("default"))) const char* cef_api_hash(int, int) {
    return "0123456789abcdef0123456789abcdef01234567";
}
