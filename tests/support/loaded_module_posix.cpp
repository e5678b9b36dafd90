#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>

#include "tests/support/loaded_module.h"

namespace wrenlink::test {
namespace {

// The loader has a lock of its own, but the thread sanitizer does not know it, and would take two
// modules that were loaded at one address in turn for one.
std::mutex loading;

std::size_t countMappings() {
    std::ifstream maps("/proc/self/maps");
    std::size_t count = 0;
    for (std::string line; std::getline(maps, line);) ++count;
    return count;
}

pthread_key_t nextThreadKey() {
    pthread_key_t key = 0;
    ::pthread_key_create(&key, nullptr);
    ::pthread_key_delete(key);
    return key;
}

}  // namespace

bool isLoaded(const std::string& path) {
    void* const handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) ::dlclose(handle);
    return handle != nullptr;
}

LoadedModule::LoadedModule(const std::string& path) {
    const std::lock_guard guard(loading);
    handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) throw std::runtime_error(::dlerror());
}

LoadedModule::~LoadedModule() {
    const std::lock_guard guard(loading);
    ::dlclose(handle_);
}

void* LoadedModule::symbol(const char* name) const { return ::dlsym(handle_, name); }

const std::uint64_t kStrayHandles = 0;

Holdings takeStock() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return {static_cast<std::uint64_t>(std::distance(begin(descriptors), end(descriptors))),
            nextThreadKey(), countMappings(), ::mallinfo2().uordblks};
}

}  // namespace wrenlink::test
