// gmime_parts.cpp - the same with gmime, whose parts refer to the message too.
#include <gmime/gmime.h>

#include "bench/xmlrpc/measured.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string text = file_bytes(argv[1]);
    g_mime_init();
    measure("parts", [&] {
        GMimeStream* const stream = g_mime_stream_mem_new_with_buffer(text.data(), text.size());
        GMimeParser* const parser = g_mime_parser_new_with_stream(stream);
        GMimeObject* const message = g_mime_parser_construct_part(parser, nullptr);
        const int count =
            GMIME_IS_MULTIPART(message) ? g_mime_multipart_get_count(GMIME_MULTIPART(message)) : 0;
        g_object_unref(message);
        g_object_unref(parser);
        g_object_unref(stream);
        return count == 64 ? text.size() : 0;
    });
}
