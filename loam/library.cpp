// loam/library.cpp - see the header for the contract. The system's part is in native_library.h.
#include "loam/library.h"

#include <new>
#include <string>

#include "loam/native_library.h"

namespace {

class library final : public zLibrary {
public:
    ~library() override { unload(); }

    zStatus Load(const char* name) override {
        unload();
        m_error.clear();
        if (name == nullptr || *name == '\0') {
            m_error = "no name";
            return -1;
        }
        // By no name: g++ for Windows would export that of a type caught beside an exported class.
        try {
            m_handle = loam::open_library(name, m_error);
        } catch (...) {
            m_handle = nullptr;
        }
        return m_handle == nullptr ? -1 : 0;
    }

    void* Symbol(const char* name) override {
        if (m_handle == nullptr || name == nullptr) {
            m_error = m_handle == nullptr ? "no library is loaded" : "no name";
            return nullptr;
        }
        return loam::symbol_of(m_handle, name, m_error);
    }

    void Unload() override { unload(); }
    void Keep() override { m_is_kept = true; }
    bool IsLoaded() const override { return m_handle != nullptr; }
    const char* Error() const override { return m_error.c_str(); }

private:
    void unload() {
        if (m_handle != nullptr && !m_is_kept) loam::close_library(m_handle);
        m_handle = nullptr;
        m_is_kept = false;
    }

    void* m_handle = nullptr;
    bool m_is_kept = false;
    std::string m_error;
};

}  // namespace

zLibrary::zLibrary() = default;
zLibrary::~zLibrary() = default;

zLibrary* zLibrary::Factory() { return new (std::nothrow) library(); }
