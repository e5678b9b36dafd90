// The per-thread store's registry of this process, seen from outside. Any thread may look.
#ifndef WRENLINK_TESTS_SUPPORT_STORE_REGISTRY_H
#define WRENLINK_TESTS_SUPPORT_STORE_REGISTRY_H

#include <cstdint>

#include "platform/os.h"

namespace wrenlink::test {

// How many modules share the registry; 0 when there is none.
inline std::uint32_t attachCount() {
    os::ProcessBlock registry = os::openProcessBlock("TLS Memory", 16);
    const std::uint32_t count =
        registry.existed ? *static_cast<const std::uint32_t*>(registry.view) : 0;
    os::closeProcessBlock(registry);
    return count;
}

// Whether the names of the registry and of its mutex are free.
inline bool storeIsGone() {
    for (const char* name : {"TLS Memory", "TLS Mutex"}) {
        os::ProcessBlock block = os::openProcessBlock(name, 16);
        const bool made = block.view != nullptr && !block.existed;
        os::closeProcessBlock(block);
        if (!made) return false;
    }
    return true;
}

}  // namespace wrenlink::test

#endif
