// host/output/output_file.cpp - see the header for the contract.
#include "host/output/output_file.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>

#include "host/output/byte_sink.h"
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

std::string text_of(const fs::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// "/dev/stdout" leads by links of the kernel's to a file that somebody has open, who would not see
// another one in its place.
bool leads_to_open_file(const std::string& path) {
    std::error_code error;
    fs::path file = fs::absolute(file_path(path), error);
    for (int i = 0; i < k_most_links && fs::is_symlink(file, error); ++i) {
        const fs::path folder = fs::weakly_canonical(file.parent_path(), error);
        if (text_of(folder).starts_with("/proc/")) return true;
        file = file.parent_path() / fs::read_symlink(file, error);
    }
    return false;
}

// Its ending stays: a file that is left by a program that was killed opens as what it is. Two
// programs that write one file at once have a part each.
fs::path part_beside(const fs::path& place) {
    // With what is added, less than the 255 that a file system has for a name.
    constexpr std::size_t k_longest_name = 200;
    char number[16];
    std::snprintf(number, sizeof number, "part-%08x",
                  static_cast<unsigned>(std::random_device()()));
    const std::string name = text_of(place.stem());
    const std::string begin = name.size() > k_longest_name ? "" : name + ".";
    return place.parent_path() / file_path(begin + number + text_of(place.extension()));
}

// Where a file cannot be put into another one's place (in its folder only its owner may, or it is
// mounted by itself) its bytes can.
std::error_code copy_over(const replacement& made) {
    std::error_code error;
    fs::copy_file(file_path(made.part), file_path(made.place), fs::copy_options::overwrite_existing,
                  error);
    if (error) return error;
    byte_sink copied;
    if (!copied.open_again(made.place).ok() || !copied.close_on_disk().ok()) {
        return std::make_error_code(std::errc::io_error);
    }
    std::error_code ignored;
    fs::remove(file_path(made.part), ignored);
    return error;
}

}  // namespace

std::optional<replacement> replacement_of(const std::string& path) {
    std::error_code error;
    const auto there = fs::status(file_path(path), error);
    if (fs::exists(there) && !fs::is_regular_file(there)) return {};
    if (leads_to_open_file(path)) return {};
    const fs::path place = place_of(path);
    const std::string part = text_of(part_beside(place));
    if (!can_be_written(part).ok()) return {};
    return replacement{part, text_of(place)};
}

outcome put_in_place(const replacement& made) {
    std::error_code error;
    const auto there = fs::status(file_path(made.place), error);
    if (fs::exists(there)) fs::permissions(file_path(made.part), there.permissions(), error);
    fs::rename(file_path(made.part), file_path(made.place), error);
    if (error) error = copy_over(made);
    if (!error) return outcome::fine();
    return outcome::failed("cannot write " + made.place + ": " + error.message() +
                           "; what was to be in it is in " + made.part);
}

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
    // The link stays that led to a file which was not there.
    if (!is_there) fs::remove(place_of(path), error);
    return outcome::fine();
}

}  // namespace pennywort::host
