// tests/host/temporary_folder.h - a folder of its own for a test, gone with the test.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "host/system/file_path.h"

namespace pennywort::host {

class temporary_folder {
public:
    temporary_folder() {
        std::random_device random;
        do {
            m_path = std::filesystem::temp_directory_path() /
                     ("pennywort-test-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(m_path));
    }
    ~temporary_folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    temporary_folder(const temporary_folder&) = delete;
    temporary_folder& operator=(const temporary_folder&) = delete;

    std::string path(const std::string& name = {}) const {
        return utf8_of(m_path / file_path(name));
    }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    // A script that can be run.
    std::string write_program(const std::string& name, const std::string& text) const {
        write(name, "#!/bin/sh\n" + text);
        std::filesystem::permissions(file_path(path(name)), std::filesystem::perms::owner_all);
        return path(name);
    }
    std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    bool has(const std::string& name) const {
        return std::filesystem::exists(file_path(path(name)));
    }

private:
    static std::string utf8_of(const std::filesystem::path& path) {
        const std::u8string text = path.u8string();
        return {text.begin(), text.end()};
    }

    std::filesystem::path m_path;
};

}  // namespace pennywort::host
