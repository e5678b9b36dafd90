#include "platform/mapping_windows.h"
#include "platform/os.h"

namespace wrenlink::os {

FileMapping FileMapping::open(std::string_view kernelName, std::size_t size,
                              bool& existed) noexcept {
    FileMapping mapping;
    mapping.handle_ = fromHandle(openMapping(kernelName, size, existed));
    return mapping;
}

bool FileMapping::valid() const noexcept { return handle_ != kNoHandle; }

void* FileMapping::map(std::size_t size) noexcept { return mapForWriting(toHandle(handle_), size); }

void FileMapping::unmap(void* view, std::size_t) noexcept { ::UnmapViewOfFile(view); }

void FileMapping::close() noexcept { closeQuietly(std::exchange(handle_, kNoHandle)); }

}  // namespace wrenlink::os
