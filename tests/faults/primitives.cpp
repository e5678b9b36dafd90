// The decorated primitives. The linker hands every call of a primitive that one object file makes
// to another to its decorator, and knows the primitive itself by another name; CMakeLists.txt tells
// it, and gives the primitives' names as it knows them.
#include <new>

#include "platform/os.h"
#include "tests/faults/faults.h"

namespace wrenlink::test {
namespace {

bool strikes(Call call) {
    const int code = static_cast<int>(call) + 1;
    if (!fails(FaultPlan::Among::primitives, call, code)) return false;
    os::setLastError(static_cast<os::ErrorCode>(code));
    return true;
}

}  // namespace

// A primitive's name, result, parameters (a member's object comes first) and what it gives when it
// fails.
#define DECORATE(name, Result, parameters, arguments, failure)           \
    Result original_##name parameters __asm__("__real_" SYMBOL_##name);  \
    Result decorated_##name parameters __asm__("__wrap_" SYMBOL_##name); \
    Result decorated_##name parameters {                                 \
        if (strikes(Call::name)) return failure;                         \
        const PrimitiveScope scope(Call::name);                          \
        return original_##name arguments;                                \
    }

DECORATE(chooseNamespace, bool, (), (), false)
DECORATE(kernelMutex, void, (os::KernelMutex * self, std::string_view name), (self, name),
         static_cast<void>(new (self) os::KernelMutex()))
DECORATE(mutexWait, os::WaitResult, (os::KernelMutex * self, std::uint32_t milliseconds),
         (self, milliseconds), os::WaitResult::failed)
DECORATE(mutexRelease, bool, (os::KernelMutex * self), (self), false)
DECORATE(mappingOpen, os::FileMapping, (std::string_view name, std::size_t size, bool& existed),
         (name, size, existed), (existed = false, os::FileMapping()))
DECORATE(mappingMap, void*, (os::FileMapping * self, std::size_t size), (self, size), nullptr)
DECORATE(processBlock, os::ProcessBlock, (const char* name, std::size_t size), (name, size),
         os::ProcessBlock())
DECORATE(processMutex, os::ProcessMutex*, (const char* name), (name), nullptr)
DECORATE(threadIndex, bool, (os::ThreadIndex & index), (index), false)
DECORATE(threadValue, bool, (os::ThreadIndex index, void* value), (index, value), false)
DECORATE(record, void*, (std::size_t size), (size), nullptr)
DECORATE(adapters, std::vector<std::string>, (std::size_t most), (most), std::vector<std::string>())
DECORATE(deviceOpen, bool, (os::Device * self, const char* path), (self, path), false)
DECORATE(deviceEvent, bool, (os::Device * self), (self), false)
DECORATE(deviceStart, os::RequestStart,
         (os::Device * self, std::uint32_t code, const void* request, std::size_t requestSize,
          void* reply, std::size_t replyCapacity),
         (self, code, request, requestSize, reply, replyCapacity), os::RequestStart::failed)
DECORATE(deviceWait, os::WaitResult, (os::Device * self, std::uint32_t milliseconds),
         (self, milliseconds), os::WaitResult::failed)
DECORATE(deviceOutcome, bool, (os::Device * self), (self), false)
DECORATE(environment, bool, (const char* name, std::string& value), (name, value), false)
DECORATE(documents, bool, (std::string & folder), (folder), false)
DECORATE(textFile, std::FILE*, (const char* path), (path), nullptr)

}  // namespace wrenlink::test
