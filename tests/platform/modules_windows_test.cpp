// Several modules of one process that each carry the per-thread store.
#include <gtest/gtest.h>
#include <windows.h>

#include <system_error>
#include <thread>

#include "tests/platform/module_sharing.h"

namespace wrenlink {
namespace {

class Module {
   public:
    explicit Module(const char* path) : path_(path), handle_(::LoadLibraryA(path)) {
        if (handle_ == nullptr) {
            throw std::system_error(static_cast<int>(::GetLastError()), std::system_category());
        }
        find(set, "storeSet");
        find(get, "storeGet");
        find(workedAtLoad, "storeWorkedAtLoad");
        find(threadEnd, "storeThreadEnd");
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module() {
        ::FreeLibrary(handle_);
        EXPECT_EQ(::GetModuleHandleA(path_), nullptr) << path_ << " stays loaded";
    }

    decltype(&storeSet) set = nullptr;
    decltype(&storeGet) get = nullptr;
    decltype(&storeWorkedAtLoad) workedAtLoad = nullptr;
    decltype(&storeThreadEnd) threadEnd = nullptr;

   private:
    template <class Function>
    void find(Function& function, const char* name) {
        function =
            reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(handle_, name)));
    }

    const char* path_;
    HMODULE handle_;
};

// The thread index and the handle that the process would get next: the lowest ones that are free.
DWORD nextThreadIndex() {
    const DWORD index = ::TlsAlloc();
    ::TlsFree(index);
    return index;
}

HANDLE nextHandle() {
    HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    ::CloseHandle(event);
    return event;
}

TEST(StoreModules, ShareOneRegistry) { test::expectOneRegistry<Module>(); }

TEST(StoreModules, LeaveNothingBehind) {
    StoreCounter discarded{0};
    const auto round = [&] {
        const Module a(STORE_MODULE_A);
        const Module b(STORE_MODULE_B);
        std::thread([&] {
            a.set(&discarded);
            b.set(&discarded);
        }).join();
    };
    round();  // what the system makes once
    const DWORD index = nextThreadIndex();
    HANDLE handle = nextHandle();
    for (int i = 0; i < 100; ++i) round();
    EXPECT_EQ(discarded, 202);
    EXPECT_EQ(nextThreadIndex(), index);
    EXPECT_EQ(nextHandle(), handle);
    EXPECT_EQ(test::attachCount(), 0U);
}

}  // namespace
}  // namespace wrenlink
