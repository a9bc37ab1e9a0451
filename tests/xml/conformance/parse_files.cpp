// parse_files.cpp - prints, for each file that standard input names in a line, the status of zXML.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "loam/xml.h"

int main() {
    std::string path;
    while (std::getline(std::cin, path)) {
        std::ifstream file(path, std::ios::binary);
        if (!file) return std::fprintf(stderr, "%s cannot be read\n", path.c_str()), 1;
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        zRecord record;
        const zStatus status =
            zXML::ParseBuffer(255, &record, text.data(), static_cast<std::int32_t>(text.size()));
        std::printf("%d\n", status);
    }
}
