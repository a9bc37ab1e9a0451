// start_fixture.h - a folder with the host program, a small other host (start_probe.cpp) and all
// that they need beside them, for tests to spoil; and both run in it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/host/program.h"

namespace pennywort::host {

// Lays the folder out, with the browser runtime in `runtime`, and data and temporary files below.
// bash.
inline const std::string k_new_host =
    "beside=$(dirname '" PENNYWORT_PROGRAM
    "')\n"
    "runtime=$(dirname \"$(realpath \"${CEF_ROOT:-$beside}/libcef.so\")\")\n"
    "unset CEF_ROOT\n"
    "mkdir -p host/rsrc config tmp home\n"
    "cp \"$beside\"/{pennywort,CEFChildProcess,runtime_start_probe} host/\n"
    "ln -s \"$beside\"/lib{loam,pennywort}.so.0 host/\n"
    "ln -s \"$runtime/libcef.so\" host/\n"
    "ln -s \"$runtime/locales\" host/rsrc/ChromeLocales\n"
    "export XDG_CONFIG_HOME=$PWD/config TMPDIR=$PWD/tmp HOME=$PWD/home\n"
    "cache=config/TarnhelmCache\n"
    "pennywort() { host/pennywort render about:blank --timeout 60 \"$@\"; }\n"
    "probe() { host/runtime_start_probe \"$@\"; }\n";

class StartTest : public testing::Test {
protected:
    // `script` is for bash, in a new folder of a host.
    program_run run(const std::string& script) const { return m_folder.run(k_new_host + script); }
    bool has(const std::string& name) const { return m_folder.has(name); }

    static bool holds(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }
    // The line that begins like that, without its end; empty if there is none.
    static std::string line_of(const std::string& text, const std::string& start) {
        const std::string all = "\n" + text;
        const std::size_t at = all.find("\n" + start);
        return at == std::string::npos ? "" : all.substr(at + 1, all.find('\n', at + 1) - at - 1);
    }

private:
    program_folder m_folder;
};

}  // namespace pennywort::host
