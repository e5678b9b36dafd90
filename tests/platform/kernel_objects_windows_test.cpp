// The kernel objects of the backend as other programs meet them, through the system's own calls.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <memory>

#include "platform/named_mutex.h"
#include "platform/os.h"
#include "platform/shared_memory.h"
#include "platform/thread_local_slot.h"
#include "tests/support/child_process.h"
#include "tests/support/test_runtime.h"

namespace wrenlink {
namespace {

using Handle = std::unique_ptr<void, decltype([](HANDLE handle) { ::CloseHandle(handle); })>;

Handle openMutex(const std::wstring& name) {
    return Handle(::OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()));
}

Handle openMapping(const std::wstring& name) {
    return Handle(::OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()));
}

std::wstring widened(const std::string& text) { return {text.begin(), text.end()}; }

// Holds a mutex, a region and a value in the store, the former named after the argument.
const test::ChildRole keeper("keep objects", [](const test::Arguments& arguments) {
    os::KernelMutex mutex(arguments.at(0) + "\xE4\x80");
    SharedMemory region(arguments.at(0) + "delays.100", 2, std::byte{0xFF});
    ThreadLocalSlot slot(nullptr);
    if (mutex.wait(0) != os::WaitResult::acquired || region.view() == nullptr || !slot.set(&slot))
        return 1;
    std::array<char, 9> id;
    std::snprintf(id.data(), id.size(), "%08x", static_cast<unsigned>(::GetCurrentProcessId()));
    test::tellParent(id.data());
    test::awaitParent();
    return 0;
});

TEST(KernelObjects, HaveTheNamesThatOtherProgramsExpect) {
    const test::TestRuntime runtime;
    const std::string name = runtime.name("");
    const std::wstring base = widened(name);
    test::ChildProcess child("keep objects", {name});
    const std::wstring id = widened(child.readLine());
    // Without a prefix, each byte as one character.
    const Handle mutex = openMutex(base + L"\x00E4\x0080");
    ASSERT_NE(mutex, nullptr);
    EXPECT_NE(openMutex(L"kvs_mutex_" + base + L"delays-100"), nullptr);
    EXPECT_NE(openMutex(L"TLS Mutex " + id), nullptr);
    const std::wstring mappings[] = {L"kvs_shm_" + base + L"delays.100", L"TLS Memory " + id};
    for (const std::wstring& mapping : mappings) EXPECT_NE(openMapping(mapping), nullptr);

    EXPECT_EQ(::WaitForSingleObject(mutex.get(), 0), WAIT_TIMEOUT);
    os::KernelMutex own(name + "\xE4\x80");
    child.kill();
    EXPECT_EQ(own.wait(10000), os::WaitResult::abandoned);
    EXPECT_TRUE(own.release());
    EXPECT_EQ(own.wait(0), os::WaitResult::acquired);
    EXPECT_TRUE(own.release());
    EXPECT_FALSE(own.release()) << "not held any more";
    for (const std::wstring& mapping : mappings) EXPECT_EQ(openMapping(mapping), nullptr);
}

}  // namespace
}  // namespace wrenlink
