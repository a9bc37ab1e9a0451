// page_address_fixture.h - a test inside a folder of its own, with files that the user names.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/app/page_address.h"
#include "tests/host/temporary_folder.h"

namespace pennywort::host {

class page_address_fixture : public testing::Test {
protected:
    page_address_fixture() : before(std::filesystem::current_path()) {
        std::filesystem::current_path(folder.path());
    }
    ~page_address_fixture() override { std::filesystem::current_path(before); }

    std::string url_of(const std::string& text) {
        reason.clear();
        const auto url = page_address(text, reason);
        return url.value_or("refused");
    }
    std::string here(const std::string& encoded) const {
        const std::string folder_name = std::filesystem::current_path().generic_string();
        const bool has_drive = folder_name.front() != '/';
        return (has_drive ? "file:///" : "file://") + folder_name + "/" + encoded;
    }

    temporary_folder folder;
    const std::filesystem::path before;
    std::string reason;
};

}  // namespace pennywort::host
