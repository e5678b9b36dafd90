// Shared libraries that a test loads, and what is left of them when they are gone. Several threads
// may load different ones at once; one thread takes stock, while no other works.
#ifndef WRENLINK_TESTS_SUPPORT_LOADED_MODULE_H
#define WRENLINK_TESTS_SUPPORT_LOADED_MODULE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace wrenlink::test {

// Whether this process has the library of that path.
bool isLoaded(const std::string& path);

class LoadedModule {
   public:
    // Throws std::system_error or std::runtime_error when the library cannot be loaded.
    explicit LoadedModule(const std::string& path);
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;
    ~LoadedModule();

    // One of its functions; null when it has none of that name.
    template <class Function>
    Function* find(const char* name) const {
        return reinterpret_cast<Function*>(symbol(name));
    }

   private:
    void* symbol(const char* name) const;

    void* handle_;
};

// What this process holds of the system.
struct Holdings {
    std::uint64_t handles;      // how many, or the next one, as the lowest free one is given out
    std::uint64_t threadIndex;  // the next one
    std::size_t mappings;
    std::size_t heapBytes;
};
Holdings takeStock();

// How far the handles may move although the process keeps none: the system opens a few for itself.
extern const std::uint64_t kStrayHandles;

}  // namespace wrenlink::test

#endif
