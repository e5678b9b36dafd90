// The kernel objects of the backend as other programs meet them, through the system's own calls.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <memory>
#include <string>

#include "platform/named_mutex.h"
#include "platform/os.h"
#include "platform/shared_memory.h"
#include "platform/thread_local_slot.h"
#include "tests/support/child_process.h"
#include "tests/support/test_runtime.h"

namespace wrenlink {
namespace {

class KernelObjects : public testing::Test {
   protected:
    test::TestRuntime runtime_;
};

struct HandleCloser {
    void operator()(HANDLE handle) const noexcept { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

Handle openMutex(const std::wstring& name) {
    return Handle(::OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()));
}

Handle openMapping(const std::wstring& name) {
    return Handle(::OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()));
}

std::wstring widened(const std::string& text) { return {text.begin(), text.end()}; }

TEST_F(KernelObjects, NamesHaveNoPrefixAndEachByteIsOneCharacter) {
    const os::KernelMutex mutex(runtime_.name("\xE4\x80"));
    EXPECT_NE(openMutex(widened(runtime_.name("")) + L"\x00E4\x0080"), nullptr);
}

TEST_F(KernelObjects, RegionHasItsMappingAndItsMutex) {
    const std::string name = runtime_.name("quilldelays.100");
    SharedMemory region(name, 2, std::byte{0xFF});
    ASSERT_NE(region.view(), nullptr);
    const std::wstring base = widened(runtime_.name("quilldelays"));
    EXPECT_NE(openMapping(L"kvs_shm_" + base + L".100"), nullptr);
    EXPECT_NE(openMutex(L"kvs_mutex_" + base + L"-100"), nullptr);
}

TEST_F(KernelObjects, RegionWhoseNameIsTakenByAnotherKindIsUnavailable) {
    const std::string name = runtime_.name("taken");
    const Handle event(::CreateEventA(nullptr, TRUE, FALSE, ("kvs_shm_" + name).c_str()));
    SharedMemory region(name, 2, std::byte{0xFF});
    EXPECT_EQ(region.view(), nullptr);
    EXPECT_TRUE(region.created());
}

TEST_F(KernelObjects, StoreIsNamedAfterItsProcess) {
    std::array<wchar_t, 9> id;
    std::swprintf(id.data(), id.size(), L"%08x", static_cast<unsigned>(::GetCurrentProcessId()));
    const std::wstring mapping = std::wstring(L"TLS Memory ") + id.data();
    const std::wstring mutex = std::wstring(L"TLS Mutex ") + id.data();
    {
        ThreadLocalSlot slot(nullptr);
        EXPECT_EQ(openMapping(mapping), nullptr) << "made by the first value";
        EXPECT_TRUE(slot.set(this));
        EXPECT_NE(openMapping(mapping), nullptr);
        EXPECT_NE(openMutex(mutex), nullptr);
    }
    EXPECT_EQ(openMapping(mapping), nullptr);
    EXPECT_EQ(openMutex(mutex), nullptr);
}

const test::ChildRole keeper("keep mutex", [](const test::Arguments& arguments) {
    os::KernelMutex mutex(arguments.at(0));
    if (mutex.wait(os::kInfinite) != os::WaitResult::acquired) return 1;
    test::tellParent("held");
    test::awaitParent();
    return 0;
});

TEST_F(KernelObjects, MutexOfKilledHolderIsAbandonedOnce) {
    const std::string name = runtime_.name("abandoned");
    os::KernelMutex mutex(name);
    test::ChildProcess child("keep mutex", {name});
    ASSERT_EQ(child.readLine(), "held");
    EXPECT_EQ(mutex.wait(0), os::WaitResult::timedOut);
    child.kill();
    EXPECT_EQ(mutex.wait(10000), os::WaitResult::abandoned);
    EXPECT_TRUE(mutex.release());
    EXPECT_EQ(mutex.wait(0), os::WaitResult::acquired);
    EXPECT_TRUE(mutex.release());
    EXPECT_FALSE(mutex.release()) << "not held any more";
}

}  // namespace
}  // namespace wrenlink
