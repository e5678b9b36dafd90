// Several modules of one process that each carry the per-thread store.
#include <gtest/gtest.h>
#include <windows.h>

#include <system_error>
#include <thread>

#include "platform/os.h"
#include "platform/thread_local_slot.h"
#include "tests/platform/store_module.h"

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

// How many modules share the registry; 0 when there is none.
std::uint32_t attachCount() {
    os::ProcessBlock registry = os::openProcessBlock("TLS Memory", 16);
    const std::uint32_t count =
        registry.existed ? *static_cast<const std::uint32_t*>(registry.view) : 0;
    os::closeProcessBlock(registry);
    return count;
}

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

TEST(StoreModules, ShareOneRegistry) {
    EXPECT_EQ(attachCount(), 0U);
    StoreCounter ofA{0};
    StoreCounter ofB{0};
    const Module a(STORE_MODULE_A);
    EXPECT_TRUE(a.workedAtLoad());
    EXPECT_EQ(attachCount(), 1U);
    {
        const Module b(STORE_MODULE_B);
        EXPECT_EQ(attachCount(), 2U);
        std::thread([&] {
            a.set(&ofA);
            b.set(&ofB);
            EXPECT_EQ(a.get(), &ofA);
            b.threadEnd();
            EXPECT_EQ(a.get(), nullptr);
        }).join();
        EXPECT_EQ(ofA, 1) << "one module's thread end discards the values of all";
        EXPECT_EQ(ofB, 1);
        b.set(&ofB);
    }
    EXPECT_EQ(ofB, 2) << "unloading discards what is left";
    EXPECT_EQ(attachCount(), 1U);
    EXPECT_TRUE(a.workedAtLoad());
}

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
    EXPECT_EQ(attachCount(), 0U);
}

}  // namespace
}  // namespace wrenlink
