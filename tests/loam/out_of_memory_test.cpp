// out_of_memory_test.cpp - each path of the library with its first allocation failing, then its
// second, and so on until it needs no more. The library's objects are linked in, so that this
// program's memory is theirs on every system.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>

#include "loam/babel.h"
#include "loam/boot.h"
#include "loam/buffer.h"
#include "loam/critical.h"
#include "loam/error_codes.h"
#include "loam/file_stream.h"
#include "loam/id_generator.h"
#include "loam/library.h"
#include "loam/message_loop.h"
#include "loam/observer.h"
#include "loam/path.h"
#include "loam/record.h"
#include "loam/signal.h"
#include "loam/socket.h"
#include "loam/string.h"
#include "loam/thread.h"
#include "loam/trace.h"
#include "loam/url_string.h"
#include "tests/loam/bounds.h"
#include "tests/support/failing_memory.h"

namespace {

constexpr int k_most_failures = 10000;    // more than any path here takes
const std::string k_long_text(100, 't');  // longer than what a string holds in itself

// Runs `step` with one more allocation each time, until it takes no more; before each time
// `prepare`, and after it `check`, which gets whether `step` threw for want of memory.
template <typename preparing, typename function, typename checking>
void fail_each(preparing prepare, function step, checking check) {
    for (int count = 0; count < k_most_failures; ++count) {
        prepare();
        bool has_thrown = false;
        fail_memory_after(count);
        try {
            step();
        } catch (const std::bad_alloc&) {
            has_thrown = true;
        }
        const bool is_done = !stop_failing_memory();
        check(has_thrown);
        ASSERT_FALSE(testing::Test::HasFailure()) << "with allocation " << count << " failing";
        if (!is_done) continue;
        EXPECT_FALSE(has_thrown);
        return;
    }
    FAIL() << "it takes memory without end";
}

template <typename function, typename checking>
void fail_each(function step, checking check) {
    fail_each([] {}, step, check);
}

void expect_nothing_thrown(bool has_thrown) { EXPECT_FALSE(has_thrown); }

// For what returns a status or null: it must not throw at all. `step` returns whether it succeeded,
// which it must in the end.
template <typename function>
void fail_each_quietly(function step) {
    bool is_fine = false;
    fail_each([&] { is_fine = step(); }, expect_nothing_thrown);
    EXPECT_TRUE(is_fine);
}

// --- records

std::string name_of(int i) { return "a name that is not short " + std::to_string(i); }

void fill(zRecord& record, int count) {
    for (int i = 0; i < count; ++i) record.SetInt32(name_of(i).c_str(), i);
}

// Every variable of fill() but `gone` is found, in order.
void expect_filled(const zRecord& record, int count, int gone = -1) {
    std::uint32_t at = 0;
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(record.AsInt32(name_of(i).c_str(), -1), i == gone ? -1 : i);
        if (i == gone) continue;
        EXPECT_EQ(record.VariableName(at++), name_of(i));
    }
}

class RecordMemoryTest : public testing::TestWithParam<int> {
protected:
    void prepare() {
        m_record.emplace();
        fill(*m_record, GetParam());
    }
    std::optional<zRecord> m_record;
};

TEST_P(RecordMemoryTest, LosesNothingWhenAVariableCannotBeAdded) {
    const int count = GetParam();
    const std::string name = name_of(count);
    fail_each([&] { prepare(); }, [&] { m_record->SetString(name.c_str(), k_long_text); },
              [&](bool has_thrown) {
                  expect_filled(*m_record, count);
                  EXPECT_EQ(m_record->Has(name.c_str()), !has_thrown);
                  EXPECT_EQ(m_record->VariableCount(), count + (has_thrown ? 0u : 1u));
              });
}

TEST_P(RecordMemoryTest, LosesNothingWhenAVariableCannotBeReplaced) {
    if (GetParam() == 0) return;
    const std::string name = name_of(0);
    fail_each([&] { prepare(); }, [&] { m_record->SetString(name.c_str(), k_long_text); },
              [&](bool has_thrown) {
                  const std::string want = has_thrown ? "0" : k_long_text;
                  EXPECT_EQ(m_record->AsString(name.c_str(), "gone"), want);
                  for (int i = 1; i < GetParam(); ++i) {
                      EXPECT_EQ(m_record->AsInt32(name_of(i).c_str(), -1), i);
                  }
              });
}

TEST_P(RecordMemoryTest, RemovesOneAndNoOtherWithoutMemory) {
    const int count = GetParam();
    for (int gone = 0; gone < count; ++gone) {
        const std::string name = name_of(gone);
        fail_each([&] { prepare(); }, [&] { m_record->Remove(name.c_str()); },
                  [&](bool has_thrown) {
                      EXPECT_FALSE(has_thrown);
                      expect_filled(*m_record, count, gone);
                  });
    }
}

TEST_P(RecordMemoryTest, StaysWhatItIsWhenItCannotBecomeAnother) {
    const int count = GetParam();
    zRecord other;
    other.SetInt32("other", 1);
    other.AddChild(new zRecord, 0);
    other.Child(0)->SetString("below", k_long_text);
    fail_each(
        [&] {
            prepare();
            m_record->AddChild(new zRecord, 0);
            m_record->AddChild(new zRecord, 0);
        },
        [&] { *m_record = other; },
        [&](bool has_thrown) {
            if (has_thrown) expect_filled(*m_record, count);
            EXPECT_EQ(m_record->ChildCount(), has_thrown ? 2u : 1u);
            EXPECT_EQ(m_record->VariableCount(), has_thrown ? static_cast<unsigned>(count) : 1u);
        });
}

INSTANTIATE_TEST_SUITE_P(Around, RecordMemoryTest, testing::Values(0, 1, 11, 12, 13, 14, 39));

// A derived class that was told of a change which then fails would keep what is not true.
TEST(RecordMemory, ADerivedClassHearsOfNoChangeThatFails) {
    class counting_record : public zRecord {
    public:
        int changes = 0;

    protected:
        void variable_changing(std::uint64_t, bool, bool) override { ++changes; }
    };
    std::optional<counting_record> record;
    fail_each([&] { record.emplace(); }, [&] { record->SetString("name", k_long_text); },
              [&](bool has_thrown) { EXPECT_EQ(record->changes, has_thrown ? 0 : 1); });
}

TEST(RecordMemory, AChildThatCannotBeAddedStaysWithItsCaller) {
    zRecord root;
    std::unique_ptr<zRecord> child;
    zStatus status = 0;
    fail_each(
        [&] {
            root.MakeEmpty();
            for (int i = 0; i < 4; ++i) root.AddChild(new zRecord, 0);
            child = std::make_unique<zRecord>();
        },
        [&] { status = root.AddChild(child.get(), 0); },
        [&](bool has_thrown) {
            EXPECT_FALSE(has_thrown);
            EXPECT_EQ(child->Parent(), status == 0 ? &root : nullptr);
            EXPECT_EQ(root.ChildCount(), status == 0 ? 5u : 4u);
            if (status == 0) child.release();
        });
    EXPECT_EQ(status, 0);
}

// The end of a tree must not need memory: there is nobody to tell.
TEST(RecordMemory, ATreeEndsAndIsEmptiedWithoutMemory) {
    std::optional<zRecord> root;
    const auto plant = [&] {
        root.emplace();
        fill(*root, 20);
        for (int i = 0; i < 3; ++i) {
            root->AddChild(new zRecord, 0);
            for (int n = 0; n < 3; ++n) root->Child(0)->AddChild(new zRecord, 0);
        }
    };
    fail_each(
        plant, [&] { root->MakeEmpty(); }, expect_nothing_thrown);
    fail_each(
        plant, [&] { root.reset(); }, expect_nothing_thrown);
}

// --- strings and buffers

TEST(StringMemory, StaysWhatItIsWhenItCannotChange) {
    const std::string before = "what it held before, longer than what fits into itself";
    const zString other(k_long_text.c_str());
    const auto expect_either = [&](const std::string& after, auto change) {
        zString text;
        fail_each([&] { text = before.c_str(); }, [&] { change(text); },
                  [&](bool has_thrown) { EXPECT_EQ(text.View(), has_thrown ? before : after); });
    };
    expect_either(k_long_text, [&](zString& text) { text = k_long_text.c_str(); });
    expect_either(k_long_text, [&](zString& text) { text = other; });
    expect_either(k_long_text, [&](zString& text) { text.SetString(k_long_text.c_str(), 100); });
    expect_either(before + k_long_text, [&](zString& text) { text += k_long_text.c_str(); });
    expect_either(before + k_long_text, [&](zString& text) { text += other; });
    expect_either(k_long_text + before, [&](zString& text) { text.Prepend(k_long_text.c_str()); });
    expect_either(k_long_text, [&](zString& text) { text.sprintf("%s", k_long_text.c_str()); });
}

TEST(BufferMemory, AStatusSaysThatNothingWasWritten) {
    std::optional<zBuffer> buffer;
    std::uint32_t written = 0;
    zStatus status = 0;
    fail_each(
        [&] {
            buffer.emplace(2);
            buffer->Data()[0] = 'a';
        },
        [&] {
            zBufferStream stream(*buffer, 0);
            status = stream.Write(k_long_text.data(), 100, &written);
            stream.ResizeBufferToFit();
        },
        [&](bool has_thrown) {
            EXPECT_FALSE(has_thrown);
            EXPECT_EQ(written, status == 0 ? 100u : 0u);
            EXPECT_EQ(buffer->Length(), 2 + written);
            EXPECT_EQ(buffer->Data()[0], 'a');
        });
    EXPECT_EQ(status, 0);
}

TEST(BabelMemory, LeavesNothingBehindWhatFails) {
    zBuffer out;
    zStatus status = 0;
    fail_each([&] { out.ResizeTo(3, 0); },
              [&] { status = zBabel::ConvertToWide(out, k_long_text.c_str(), -1, zBabel::k_utf8); },
              [&](bool has_thrown) {
                  EXPECT_FALSE(has_thrown);
                  EXPECT_EQ(out.Length(), status == 0 ? 200u : 0u);
              });
}

TEST(UrlMemory, FailsWithAStatus) {
    const std::string url = "http://" + k_long_text + "/" + k_long_text;
    zString host;
    zString path;
    fail_each_quietly([&] {
        return zURLString::Get(url.c_str(), nullptr, nullptr, &host, nullptr, &path, nullptr) == 0;
    });
    EXPECT_EQ(host.View(), k_long_text);
    EXPECT_EQ(path.View(), k_long_text);
}

// --- threads, locks and what else is made by a Factory

class counting_body : public zThreadMain {
public:
    zStatus Main(std::int32_t, const char* const*) override {
        ++runs;
        return 0;
    }
    std::atomic<int> runs{0};
};

// Null means that nothing runs: the body may go at once.
TEST(ThreadMemory, NullMeansThatNothingRuns) {
    counting_body body;
    int made = 0;
    fail_each(
        [&] {
            const std::unique_ptr<zThread> thread(
                zThread::Factory("a thread with a long name", &body, 0, 4));
            if (thread == nullptr) return;
            thread->Join();
            ++made;
        },
        [&](bool has_thrown) {
            EXPECT_FALSE(has_thrown);
            EXPECT_EQ(body.runs, made);
        });
    EXPECT_EQ(made, 1);
}

template <typename made>
bool is_made(made* object) {
    delete object;
    return object != nullptr;
}

TEST(FactoryMemory, IsNullWithoutMemory) {
    fail_each_quietly([] { return is_made(zSocket::Factory()); });
    fail_each_quietly([] { return is_made(zSocketWaker::Factory()); });
    fail_each_quietly([] { return is_made(zCritical::Factory(0)); });
    fail_each_quietly([] { return is_made(zCritical::Factory(1)); });
    fail_each_quietly([] { return is_made(zSignal::Factory()); });
    fail_each_quietly([] { return is_made(zLibrary::Factory()); });
}

TEST(LibraryMemory, FailsWithAStatus) {
    const std::unique_ptr<zLibrary> library(zLibrary::Factory());
    fail_each_quietly(
        [&] { return library->Load("./a-library-that-is-not-there-and-has-a-long-name.so") != 0; });
}

// --- sockets

struct socket_pair {
    std::unique_ptr<zSocket> listener, near, far;
};

zStatus listen_on_own_machine(zSocket& listener) {
    zStatus status = listener.Open(0);
    if (status == 0) status = listener.SetReuseAddress();
    if (status == 0) status = listener.BindTo("127.0.0.1", 0);
    return status != 0 ? status : listener.Listen(3);
}

zStatus wait_for(zSocket& socket, std::int32_t events, zSocketWaker* waker = nullptr) {
    _zSocket_select entry{&socket, events, 0};
    zHeap<_zSocket_select*> set;
    set.Add(&entry);
    std::int32_t ready = 0;
    const zStatus status = zSocket::Select(&set, k_long_ms, &ready, waker);
    return status != 0 ? status : entry.occurred == events ? 0 : -1;
}

zStatus connect_pair(socket_pair& pair) {
    zStatus status = listen_on_own_machine(*pair.listener);
    if (status == 0) status = pair.near->Open(0);
    if (status == 0) {
        status = pair.near->Connect("127.0.0.1", pair.listener->LocalPort(), k_long_ms);
    }
    if (status == 0) status = wait_for(*pair.listener, zSocket::k_readable);
    zSocket* accepted = nullptr;
    if (status == 0) status = pair.listener->Accept(&accepted, 0);
    pair.far.reset(accepted);
    return status;
}

zStatus exchange_bytes(socket_pair& pair) {
    char bytes[4];
    std::int32_t received = 0;
    zStatus status = pair.near->Send("a", 1, 0, k_long_ms);
    if (status == 0) status = wait_for(*pair.far, zSocket::k_readable);
    if (status == 0) status = pair.far->Receive(bytes, sizeof bytes, &received);
    return status != 0 ? status : received - 1;
}

TEST(SocketMemory, FailsWithAStatusFromOpenToReceive) {
    socket_pair pair;
    fail_each_quietly([&] {
        pair.listener.reset(zSocket::Factory());
        pair.near.reset(zSocket::Factory());
        if (pair.listener == nullptr || pair.near == nullptr) return false;
        try {
            return connect_pair(pair) == 0 && exchange_bytes(pair) == 0;
        } catch (const std::bad_alloc&) {
            return false;  // the set's own memory, which is the caller's
        }
    });
}

// More sockets than a wait has room for in itself.
TEST(SocketMemory, AWaitForManySocketsFailsWithAStatus) {
    socket_pair pair{std::unique_ptr<zSocket>(zSocket::Factory()),
                     std::unique_ptr<zSocket>(zSocket::Factory()), nullptr};
    ASSERT_EQ(connect_pair(pair), 0);
    _zSocket_select entry{pair.near.get(), zSocket::k_writable, 0};
    zHeap<_zSocket_select*> set;
    for (int i = 0; i < 5000; ++i) set.Add(&entry);
    std::int32_t ready = -1;
    zStatus status = 0;
    fail_each([&] { status = zSocket::Select(&set, k_long_ms, &ready); },
              [&](bool has_thrown) {
                  EXPECT_FALSE(has_thrown);
                  EXPECT_EQ(status, ready == 0 ? zSocket::k_no_resources : 0);
              });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ready, 5000);
}

// --- loops, notifications and modules

void run_what_is_ready() {
    while (zMessageLoop::RunOnce(0)) {
    }
}

TEST(LoopMemory, WhatIsRefusedIsNeverCalled) {
    const auto loop = zMessageLoop::Current();
    int calls = 0;
    zStatus status = 0;
    fail_each(
        [&] {
            calls = 0;
            status = 1;
        },
        [&] { status = loop->Post([&calls] { ++calls; }); },
        [&](bool has_thrown) {
            run_what_is_ready();
            EXPECT_EQ(calls, has_thrown || status != 0 ? 0 : 1);
        });
    EXPECT_EQ(calls, 1);
}

// The first use of a loop on a thread, and the end of it.
TEST(LoopMemory, AThreadsLoopComesAndGoes) {
    for (int count = 0; count < 60; ++count) {
        std::thread([count] {
            fail_memory_after(count);
            try {
                zMessageLoop::Current()->Post([] {});
                zMessageLoop::RunOnce(0);
            } catch (const std::bad_alloc&) {
            }
            stop_failing_memory();
        }).join();
    }
}

TEST(ObserverMemory, ANotificationArrivesOrItsStatusSaysSo) {
    int calls = 0;
    int alive = 0;
    class counted_record : public zRecord {
    public:
        explicit counted_record(int& count) : m_count(count) { ++m_count; }
        ~counted_record() override { --m_count; }

    private:
        int& m_count;
    };
    const std::int32_t code = zObserverHandler::NewCode();
    const zObserverHandler observer(code, [&](const zRecord&, std::uint64_t) { ++calls; });
    zRecord* payload = nullptr;
    zStatus status = 0;
    fail_each(
        [&] {
            calls = 0;
            payload = new counted_record(alive);
        },
        [&] { status = zObserverHandler::PostNotification(code, payload, 7); },
        [&](bool has_thrown) {
            EXPECT_FALSE(has_thrown);
            run_what_is_ready();
            EXPECT_EQ(calls, status == 0 ? 1 : 0);
            EXPECT_EQ(alive, 0) << "the payload is still there";
        });
    EXPECT_EQ(calls, 1);
}

TEST(ObserverMemory, AnObserverThatCannotBeMadeIsNone) {
    const std::int32_t code = zObserverHandler::NewCode();
    fail_each([&] { const zObserverHandler made(code, [](const zRecord&, std::uint64_t) {}); },
              [&](bool) { EXPECT_EQ(zObserverHandler::PostNotification(code, nullptr, 0), 0); });
}

int s_starts = 0;
int s_stops = 0;

TEST(BootMemory, EachModuleIsStartedAndStoppedOnce) {
    const zBoot module([] { ++s_starts; }, [] { ++s_stops; }, 0x6F6F6D31);
    zStatus started = 0;
    zStatus stopped = 0;
    fail_each(
        [&] {
            s_starts = 0;
            s_stops = 0;
        },
        [&] {
            started = zBoot::StartModules();
            stopped = zBoot::StopModules();
        },
        [&](bool has_thrown) {
            EXPECT_FALSE(has_thrown);
            EXPECT_EQ(started, 0);
            EXPECT_EQ(stopped, 0);
            EXPECT_EQ(s_starts, 1);
            EXPECT_EQ(s_stops, 1);
        });
}

TEST(ErrorCodeMemory, ARangeIsThereOrItsStatusSaysSo) {
    constexpr std::int32_t k_code = -777000;
    zStatus status = 0;
    fail_each(
        [&] { status = zErrCodeManager::RegisterCodeRange(k_code, k_code, k_long_text.c_str()); },
        [&](bool has_thrown) {
            EXPECT_FALSE(has_thrown);
            EXPECT_EQ(zErrCodeManager::LabelFor(k_code), status == 0 ? k_long_text : "");
        });
}

// --- traces, files and paths

TEST(TraceMemory, AMessageIsTracedOrDroppedAndNothingThrown) {
    int calls = 0;
    zTraceManager* const traces = zTraceManager::Default();
    traces->SetSink([&](const char*) { ++calls; });
    fail_each([&] { traces->TraceNote("%s%s\n", k_long_text.c_str(), k_long_text.c_str()); },
              expect_nothing_thrown);
    traces->SetSink({});
    EXPECT_EQ(calls, 1);
}

TEST(TraceMemory, ASinkThatCannotBeSetLeavesTheOneBefore) {
    int calls = 0;
    zTraceManager* const traces = zTraceManager::Default();
    std::function<void(const char*)> other;
    fail_each(
        [&] {
            calls = 0;
            traces->SetSink([&](const char*) { ++calls; });
            other = [](const char*) {};
        },
        [&] { traces->SetSink(std::move(other)); },
        [&](bool has_thrown) {
            traces->TraceNote("note\n");
            EXPECT_EQ(calls, has_thrown ? 1 : 0);
        });
    traces->SetSink({});
}

class FileMemoryTest : public testing::Test {
protected:
    void SetUp() override {
        zString id;
        const std::string name = std::string("loam-memory-") + zIDGenerator::GenerateUUID(id);
        m_folder = std::filesystem::temp_directory_path() / name;
        std::filesystem::create_directories(m_folder);
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }
    std::string path(const char* name) const { return (m_folder / name).string(); }

    std::filesystem::path m_folder;
};

TEST_F(FileMemoryTest, AFileFailsWithAStatus) {
    const std::string name = path("file");
    zFileStream file(name.c_str(), zFileStream::k_create, false);
    zFileStream again(name.c_str(), zFileStream::k_read, false);
    zBuffer all;
    fail_each_quietly([&] {
        return file.Open() == 0 && file.Write("text", 4, nullptr) == 0 && file.Close() == 0 &&
               again.Open() == 0 && again.ReadAll(all) == 0 && all.Length() == 4 &&
               again.Close() == 0;
    });
    fail_each_quietly([&] { return zFileStream::RemoveFile(name.c_str()) == 0; });
}

TEST_F(FileMemoryTest, AFolderIsMadeOrItsStatusSaysSo) {
    const std::string name = path("one/two/three");
    fail_each_quietly([&] { return zDirectory::MakeSureExists(name.c_str()) == 0; });
    EXPECT_TRUE(std::filesystem::is_directory(name));
}

TEST(PathMemory, StaysWhatItIsWhenItCannotChange) {
    const std::string before = "/a folder with a rather long name";
    zFSPath path;
    fail_each([&] { path = zString(before.c_str()); }, [&] { path.GoChild(k_long_text.c_str()); },
              [&](bool has_thrown) { EXPECT_EQ(path.CString() == before, has_thrown); });
    fail_each([&] { path = zString(before.c_str()); }, [&] { path.GoParent(); },
              expect_nothing_thrown);
}

TEST(IdMemory, IsWholeOrThrows) {
    zString id;
    fail_each([&] { id = "before"; }, [&] { zIDGenerator::GenerateUUID(id); },
              [&](bool has_thrown) { EXPECT_EQ(id.Length(), has_thrown ? 6u : 36u); });
}

}  // namespace
