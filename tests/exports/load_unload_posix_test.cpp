// Loading the library, using it and unloading it, again and again in one process.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/simulator.h"
#include "wrenlink/spifns.h"

namespace wrenlink::test {
namespace {

class LoadedLibrary {
   public:
    LoadedLibrary() : handle_(::dlopen(WRENLINK_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) throw std::runtime_error(::dlerror());
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    ~LoadedLibrary() { ::dlclose(handle_); }

    template <class Function>
    Function* find(const char* name) const {
        void* const symbol = ::dlsym(handle_, name);
        if (symbol == nullptr) throw std::runtime_error(::dlerror());
        return reinterpret_cast<Function*>(symbol);
    }

   private:
    void* handle_;
};

// Exchanges, fails and leaves a last error on a thread that ends and on this one.
void useLibrary(const LoadedLibrary& library) {
    const auto init = library.find<decltype(spifns_stream_init)>("spifns_stream_init");
    const auto close = library.find<decltype(spifns_stream_close)>("spifns_stream_close");
    const auto run = library.find<decltype(spifns_stream_sequence)>("spifns_stream_sequence");
    std::uint32_t id = 0;
    ASSERT_EQ(init(&id), 0);
    EXPECT_EQ(id, 1U);  // the library has started anew
    SpiAction select{};
    select.type = SPIFNS_SETVAR;
    select.u.variable.var = "SPIPORT";
    select.u.variable.value = "0";
    std::uint16_t words[4] = {};
    SpiAction read{};
    read.u.memory.length = 4;
    read.u.memory.data = words;
    EXPECT_EQ(run(id, &select, 1), 0);
    EXPECT_EQ(run(id, &read, 1), 0);
    EXPECT_EQ(words[3], 0xABCD);
    close(id);
    const auto fail = [&] { EXPECT_EQ(run(id, &read, 1), 1); };
    std::thread(fail).join();
    fail();
}

std::size_t countDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

// The mappings of this process, or those of one file.
std::size_t countMappings(const std::string& ofFile = "") {
    std::ifstream maps("/proc/self/maps");
    std::size_t count = 0;
    for (std::string line; std::getline(maps, line);)
        if (line.find(ofFile) != std::string::npos) ++count;
    return count;
}

// Keys are handed out from the lowest free one on.
pthread_key_t nextThreadKey() {
    pthread_key_t key = 0;
    EXPECT_EQ(::pthread_key_create(&key, nullptr), 0);
    ::pthread_key_delete(key);
    return key;
}

struct Holdings {
    std::size_t descriptors = countDescriptors();
    std::size_t mappings = countMappings();
    pthread_key_t threadKey = nextThreadKey();
    std::size_t heap = ::mallinfo2().uordblks;
};

TEST(LoadUnload, LeavesNothingBehind) {
    constexpr int kWarmUp = 10;
    constexpr std::size_t kRounds = 90;
    Simulator simulator;
    simulator.control("poke 0 3 0xabcd");
    const auto round = [] {
        const LoadedLibrary library;
        useLibrary(library);
    };
    for (int i = 0; i < kWarmUp; ++i) round();
    const Holdings before;
    for (std::size_t i = 0; i < kRounds; ++i) round();
    const Holdings after;
    EXPECT_EQ(countMappings("libwrenlink"), 0U);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.threadKey, before.threadKey);
    // Less than the least that a leak in each round would come to.
    EXPECT_LT(after.mappings, before.mappings + kRounds);
    EXPECT_LT(after.heap, before.heap + kRounds * 16);
}

// A host may unload the library without closing its streams. They are lost then, so that a process
// of its own does it, which is killed before anybody looks for leaks.
int unloadWithStreams(const Arguments&) {
    {
        const LoadedLibrary library;
        std::uint32_t id = 0;
        library.find<decltype(spifns_stream_init)>("spifns_stream_init")(&id);
        library.find<decltype(spifns_init)>("spifns_init")();
        tellParent(std::to_string(countMappings("libwrenlink") > 0));
    }
    tellParent(std::to_string(countMappings("libwrenlink")));
    awaitParent();
    return 0;
}
const ChildRole kUnloadWithStreams("unload-with-streams", unloadWithStreams);

TEST(LoadUnload, PermitsOpenStreams) {
    const Simulator simulator;
    ChildProcess child("unload-with-streams");
    EXPECT_EQ(child.readLine(), "1");
    EXPECT_EQ(child.readLine(), "0");
}

}  // namespace
}  // namespace wrenlink::test
