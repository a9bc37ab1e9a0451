// users_machine_test.cpp - what pages try on the user's machine: no file is saved, no program
// started.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "hostile_page.h"

namespace pennywort::runtime_test {
namespace {

using testing::PrintToString;

class UsersMachine : public HostilePage {
protected:
    void prepare() override {
        setenv("HOME", m_home.path().c_str(), 1);
        // A stand-in for the program that opens addresses: it leaves a mark.
        const std::string opener = m_home.child("xdg-open");
        std::ofstream(opener) << "#!/bin/sh\ntouch " << m_home.child("opened") << "\n";
        std::filesystem::permissions(opener, std::filesystem::perms::owner_all);
        setenv("PATH", (m_home.path() + ":" + std::getenv("PATH")).c_str(), 1);
    }
    std::vector<std::string> files_named(const std::string& part) const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_home.path())) {
            const std::string name = entry.path().filename().string();
            if (name.find(part) != std::string::npos) found.push_back(entry.path().string());
        }
        return found;
    }

    temporary_folder m_home;
};

TEST_F(UsersMachine, ADownloadSavesNothingWhereItIsRefused) {
    shown_page page({.url = m_peer.url("/download"), .refuse_downloads = true});
    run_loop_for(500);
    page->LoadUrl(m_peer
                      .html("<a id=a download=show.bin href='data:text/plain,hello'>x</a>"
                            "<script>a.click(); location = '" +
                            m_peer.url("/download") + "'</script>")
                      .c_str());
    EXPECT_TRUE(wait_for(
        [&] { return traces().find("a download by the page was refused") != std::string::npos; }));
    run_loop_for(500);
    EXPECT_TRUE(files_named("show").empty()) << PrintToString(files_named("show"));
    EXPECT_TRUE(files_named("crdownload").empty()) << PrintToString(files_named("crdownload"));
    const std::string next = m_peer.html("<body>next");
    page->LoadUrl(next.c_str());
    EXPECT_TRUE(wait_for([&] {
        if (!page->IsLoading()) page->LoadNextUrl();
        return page.events.has_loaded(next);
    }));
}

TEST_F(UsersMachine, NoProgramIsStartedForAnAddress) {
    shown_page page({.url = m_peer.html("<body>")});
    ASSERT_TRUE(page.wait_until_loaded());
    page->LoadUrl("mailto:somebody@host.example");
    page.run("location.href = 'tel:1234'");
    page.run("location.href = 'made-up-scheme:anything'");
    page.run("open('mailto:somebody@host.example')");
    page.run("document.body.innerHTML = '<iframe src=\"mailto:x@host.example\"></iframe>'");
    run_loop_for(1500);
    EXPECT_TRUE(files_named("opened").empty());
    EXPECT_EQ(page.ask("return 'alive'"), "alive");
}

}  // namespace
}  // namespace pennywort::runtime_test
