// loam/library_linux.cpp - Linux half of loam/library.h. Windows half: library_win.cpp.
#include <dlfcn.h>

#include <new>
#include <string>

#include "loam/library.h"

namespace {

class library final : public zLibrary {
public:
    ~library() override { unload(); }

    zStatus Load(const char* name) override {
        unload();
        if (name == nullptr || *name == '\0') {
            m_error = "no name";
            return -1;
        }
        m_handle = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
        note_error(m_handle == nullptr);
        return m_handle == nullptr ? -1 : 0;
    }

    void* Symbol(const char* name) override {
        if (m_handle == nullptr || name == nullptr) {
            m_error = m_handle == nullptr ? "no library is loaded" : "no name";
            return nullptr;
        }
        void* address = ::dlsym(m_handle, name);
        note_error(address == nullptr);
        return address;
    }

    void Unload() override { unload(); }
    void Keep() override { m_keep = true; }
    bool IsLoaded() const override { return m_handle != nullptr; }
    const char* Error() const override { return m_error.c_str(); }

private:
    void unload() {
        if (m_handle != nullptr && !m_keep) ::dlclose(m_handle);
        m_handle = nullptr;
        m_keep = false;
    }

    void note_error(bool failed) {
        const char* text = failed ? ::dlerror() : nullptr;
        m_error = text != nullptr ? text : failed ? "the name is there, but it is null" : "";
    }

    void* m_handle = nullptr;
    bool m_keep = false;
    std::string m_error;
};

}  // namespace

zLibrary* zLibrary::Factory() { return new (std::nothrow) library(); }
