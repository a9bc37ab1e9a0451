// said_by.h - what one of the program's commands writes, run inside a test.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "host/system/console.h"

namespace pennywort::host {

struct said {
    int status = -1;
    std::string output;
    std::string errors;
};

inline said said_by(const std::function<int(const console&)>& work) {
    said all;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        const console out(console::others::heard);
        all.status = work(out);
    }
    all.output = testing::internal::GetCapturedStdout();
    all.errors = testing::internal::GetCapturedStderr();
    return all;
}

}  // namespace pennywort::host
