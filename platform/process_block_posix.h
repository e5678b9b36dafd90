// Blocks of memory that the modules of one process find by name. They live on the heap and need no
// file, no descriptor and no exported symbol: a child made by fork has its own copies, and no other
// process can reach them.
//
// Everything here may be called from any thread, also while a library is being loaded or unloaded,
// but not from a callback of dl_iterate_phdr.
#ifndef WRENLINK_PLATFORM_PROCESS_BLOCK_POSIX_H
#define WRENLINK_PLATFORM_PROCESS_BLOCK_POSIX_H

#include <cstddef>

namespace wrenlink::os {

// What is done to a block that nobody else can see, yet or any more; it may do nothing (null).
using BlockAction = void (*)(void* block) noexcept;

// Opens the block of that name (at most 31 characters) and size in bytes, and counts one more user.
// A new block is zeroed, then given to `initialise`; `existed` tells which. Null with errno set
// when there is no memory, or when the name stands for a block of another size.
void* openBlock(const char* name, std::size_t size, BlockAction initialise, bool& existed) noexcept;

// Counts one user less; the last one's block is given to `finish` and freed.
void closeBlock(void* block, BlockAction finish) noexcept;

}  // namespace wrenlink::os

#endif
