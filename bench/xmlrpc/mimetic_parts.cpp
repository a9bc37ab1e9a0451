// mimetic_parts.cpp - the same with mimetic, which copies each part.
#include <mimetic/mimetic.h>

#include "bench/xmlrpc/measured.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string text = file_bytes(argv[1]);
    measure("parts", [&] {
        const mimetic::MimeEntity message(text.begin(), text.end());
        return message.body().parts().size() == 64 ? text.size() : 0;
    });
}
