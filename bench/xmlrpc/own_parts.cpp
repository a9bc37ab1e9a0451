// own_parts.cpp - cMultipartReader with a message: own_parts FILE.
#include <cstdint>

#include "bench/xmlrpc/measured.h"
#include "multipart.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string text = file_bytes(argv[1]);
    measure("parts", [&] {
        zRecord record;
        cMultipartReader reader(record);
        reader.Parse_WithHeaders(text.data(), static_cast<std::int32_t>(text.size()));
        return record.ChildCount() == 64 ? text.size() : 0;
    });
}
