// absent_library.h - hides a DNS-SD library that the machine may have.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "loam/library.h"

// While it lives, what is found under the name of the system's library has none of its functions.
class absent_library {
public:
    absent_library() : m_library(zLibrary::Factory()) {
        EXPECT_EQ(m_library->Load(FAKE_DNSSD_FOLDER "/8/" FAKE_DNSSD_FILE), 0)
            << m_library->Error();
    }

private:
    std::unique_ptr<zLibrary> m_library;
};
