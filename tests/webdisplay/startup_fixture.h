// startup_fixture.h - what the tests of starts share: starts that must fail, and another host
// (start_probe.cpp).
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/webdisplay/fake_runtime_test.h"
#include "tests/webdisplay/test_process.h"

namespace fs = std::filesystem;
using manager = cWebDisplayCEFBrowserManager;

class StartupTest : public FakeRuntimeTest {
protected:
    static std::string failure() {
        zString text;
        manager::GetStartupFailure(text);
        return text.CString();
    }
    // A start that must fail, with the cause and the remedy in its sentence.
    static void expect_failure(const std::string& cause, const std::string& remedy) {
        EXPECT_FALSE(manager::Startup(""));
        EXPECT_FALSE(manager::IsInitialized());
        EXPECT_NE(failure().find(cause), std::string::npos) << failure();
        EXPECT_NE(failure().find(remedy), std::string::npos) << failure();
        EXPECT_EQ(failure().find('\n'), std::string::npos) << failure();
    }
    // What every host may go on doing after that.
    static void expect_everything_harmless() {
        screen s(page("http://a/"));
        ASSERT_NE(s.get(), nullptr);
        EXPECT_FALSE(s->Open());
        s->LoadUrl("http://b/");
        s->SetSize(7, 7);
        s->Repaint();
        s->SetVisibility(true);
        s->DeleteCookies("http://a/");
        EXPECT_FALSE(s->IsLoading());
        EXPECT_EQ(s->ExecuteJavascript("x", 0, {}), -1);
        s->Close();
        manager::SetCanRunCefMessageLoopFn([] { return true; });
    }
    // Runs a probe and answers what it wrote.
    std::string run_probe(const fs::path& probe, const std::string& argument = "") const {
        // Of each run its own: what a run has started may hold its output for a while longer, and
        // Windows does not let the next one have it then.
        const fs::path output = m_folder / ("output" + std::to_string(++m_runs));
        const std::string command =
            "\"" + probe.string() + "\" " + argument + " > \"" + output.string() + "\" 2>&1";
        EXPECT_EQ(test_process::run(command), 0) << command;
        std::stringstream text;
        text << std::ifstream(output).rdbuf();
        return text.str();
    }
    static fs::path original_probe() { return fs::path(START_PROBE).make_preferred(); }
    static bool has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }

private:
    mutable int m_runs = 0;
};
