// host/output/output_file.cpp - see the header for the contract.
#include "host/output/output_file.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "host/system/file_path.h"

namespace pennywort::host {

namespace fs = std::filesystem;

outcome can_be_written(const std::string& path) {
    const fs::path file = file_path(path);
    const fs::path folder = file.parent_path();
    std::error_code error;
    if (!folder.empty() && !fs::is_directory(folder, error)) {
        return outcome::failed("cannot write " + path + ": there is no folder " + folder.string());
    }
    const bool is_there = fs::exists(file, error);
    if (is_there && !fs::is_regular_file(file, error) && !fs::is_directory(file, error)) {
        return outcome::fine();
    }
    std::FILE* const tried = std::fopen(path.c_str(), "ab");
    if (tried == nullptr) {
        const int reason = errno;
        return outcome::failed("cannot write " + path + ": " +
                               std::generic_category().message(reason));
    }
    std::fclose(tried);
    if (!is_there) fs::remove(file, error);
    return outcome::fine();
}

}  // namespace pennywort::host
