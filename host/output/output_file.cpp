// host/output/output_file.cpp - see the header for the contract.
#include "host/output/output_file.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "host/system/file_names.h"
#include "host/system/file_path.h"

namespace pennywort::host {

namespace fs = std::filesystem;

namespace {

// As many links as systems follow.
constexpr int k_most_links = 40;

// Where the file of that name is, or would be.
fs::path place_of(const std::string& path) {
    std::error_code error;
    fs::path file = fs::absolute(file_path(path), error);
    for (int i = 0; i < k_most_links && fs::is_symlink(file, error); ++i) {
        file = file.parent_path() / fs::read_symlink(file, error);
    }
    const fs::path folder = fs::weakly_canonical(file.parent_path(), error);
    return error ? file : folder / file.filename();
}

}  // namespace

bool are_one_file(const std::string& one, const std::string& other) {
    std::error_code error;
    if (fs::equivalent(file_path(one), file_path(other), error)) return true;
    return are_one_name(place_of(one), place_of(other));
}

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
