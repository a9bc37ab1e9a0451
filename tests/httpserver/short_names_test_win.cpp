// short_names_test_win.cpp - the second name that Windows gives to files, "SECRET~1.TXT" for
// instance, shows none of them.
#include <windows.h>
// Apart, since windows.h has to stand before it.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "loam/id_generator.h"
#include "tests/httpserver/serving_test.h"

namespace {

namespace fs = std::filesystem;

std::string short_name(const fs::path& path) {
    wchar_t text[MAX_PATH] = {};
    ::GetShortPathNameW(path.c_str(), text, MAX_PATH);
    return fs::path(text).filename().string();
}

TEST(ShortNames, LeadToNoFileAndToNoFolder) {
    zString name;
    zIDGenerator::GenerateUUID(name);
    const fs::path root = fs::temp_directory_path() / name.CString();
    fs::create_directories(root / ".a hidden folder");
    std::ofstream(root / ".a hidden file.text") << "hidden";
    std::ofstream(root / ".a hidden folder/file.txt") << "hidden";
    std::ofstream(root / "A File With A Long Name.text") << "shown";
    const auto folder = make<cHttpFolderHandler>(zString(root.string()), zString("/"));
    const auto last = make<cHttpNotFoundHandler>();
    cHttpServer server(0, 4096);
    server.InstallHandler(*folder);
    server.InstallHandler(*last);
    const auto body = [&](const std::string& path) {
        return body_of(get(server.ListenPort(), path));
    };
    EXPECT_EQ(body("/A%20File%20With%20A%20Long%20Name.text"), "shown");
    // Names are the same in either case, as everywhere on this system.
    EXPECT_EQ(body("/a%20file%20with%20a%20long%20name.text"), "shown");
    const std::string of_file = short_name(root / ".a hidden file.text");
    const std::string of_folder = short_name(root / ".a hidden folder");
    const std::string of_shown = short_name(root / "A File With A Long Name.text");
    ASSERT_NE(of_file.find('~'), std::string::npos) << of_file;
    for (const std::string& path : {"/" + of_file, "/" + of_folder + "/file.txt", "/" + of_shown}) {
        EXPECT_NE(get(server.ListenPort(), path).find("404 Not Found"), std::string::npos) << path;
    }
    fs::remove_all(root);
}

}  // namespace
