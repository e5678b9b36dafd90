// An adapter is a device interface of the class that its driver registers; each exchange opens the
// interface anew and makes one overlapped control request.
#include <windows.h>
// setupapi.h needs the types of windows.h.
#include <setupapi.h>

#include <memory>
#include <new>

#include "platform/native_windows.h"
#include "platform/os.h"

namespace wrenlink::os {
namespace {

constexpr GUID kAdapterInterface = {
    0x7AC3548C, 0x4E55, 0x49BE, {0x8D, 0xB1, 0xF4, 0x73, 0xF4, 0x24, 0x6A, 0x58}};

struct InfoListDestroyer {
    using pointer = HDEVINFO;
    void operator()(HDEVINFO list) const noexcept {
        if (list != INVALID_HANDLE_VALUE) ::SetupDiDestroyDeviceInfoList(list);
    }
};
using InfoList = std::unique_ptr<HDEVINFO, InfoListDestroyer>;

using Detail = SP_DEVICE_INTERFACE_DETAIL_DATA_A;
struct HeapFreer {
    void operator()(Detail* block) const noexcept { ::HeapFree(::GetProcessHeap(), 0, block); }
};
using DetailBlock = std::unique_ptr<Detail, HeapFreer>;

static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32 && sizeof(Detail) == 8);

// The detail record of a member, with its device path; null when the member has gone meanwhile.
DetailBlock interfaceDetail(HDEVINFO list, SP_DEVICE_INTERFACE_DATA& member) {
    DWORD size = 0;
    ::SetupDiGetDeviceInterfaceDetailA(list, &member, nullptr, 0, &size, nullptr);
    if (size < sizeof(Detail)) return nullptr;
    DetailBlock block(static_cast<Detail*>(
        ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY | HEAP_GENERATE_EXCEPTIONS, size)));
    block->cbSize = sizeof(Detail);
    const BOOL filled =
        ::SetupDiGetDeviceInterfaceDetailA(list, &member, block.get(), size, nullptr, nullptr);
    return filled ? std::move(block) : nullptr;
}

}  // namespace

std::vector<std::string> presentAdapters(std::size_t most) {
    std::vector<std::string> paths;
    const InfoList list(::SetupDiGetClassDevsA(&kAdapterInterface, nullptr, nullptr,
                                               DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
    for (DWORD index = 0; index < most; ++index) {
        SP_DEVICE_INTERFACE_DATA member{};
        member.cbSize = sizeof member;
        if (!::SetupDiEnumDeviceInterfaces(list.get(), nullptr, &kAdapterInterface, index,
                                           &member)) {
            break;
        }
        const DetailBlock detail = interfaceDetail(list.get(), member);
        if (detail != nullptr) paths.emplace_back(detail->DevicePath);
    }
    return paths;
}

bool Device::open(const char* devicePath) noexcept {
    device_ = fromHandle(::CreateFileA(devicePath, GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_OVERLAPPED, nullptr));
    return device_ != kNoHandle;
}

bool Device::makeEvent() noexcept {
    event_ = fromHandle(::CreateEventA(nullptr, TRUE, FALSE, nullptr));
    return event_ != kNoHandle;
}

RequestStart Device::start(std::uint32_t controlCode, const void* request, std::size_t requestSize,
                           void* reply, std::size_t replyCapacity) noexcept {
    static_assert(sizeof(OVERLAPPED) == sizeof overlapped_ && alignof(OVERLAPPED) <= 8);
    auto* const overlapped = new (overlapped_) OVERLAPPED{};
    overlapped->hEvent = toHandle(event_);
    DWORD transferred = 0;
    if (::DeviceIoControl(toHandle(device_), controlCode, const_cast<void*>(request),
                          static_cast<DWORD>(requestSize), reply, static_cast<DWORD>(replyCapacity),
                          &transferred, overlapped)) {
        inFlight_ = true;
        return RequestStart::completed;
    }
    inFlight_ = ::GetLastError() == ERROR_IO_PENDING;
    return inFlight_ ? RequestStart::pending : RequestStart::failed;
}

WaitResult Device::wait(std::uint32_t milliseconds) noexcept {
    if (!inFlight_) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return WaitResult::failed;
    }
    const DWORD result = ::WaitForSingleObject(toHandle(event_), milliseconds);
    if (result == WAIT_OBJECT_0) return WaitResult::acquired;
    return result == WAIT_TIMEOUT ? WaitResult::timedOut : WaitResult::failed;
}

bool Device::outcome() noexcept {
    auto* const overlapped = std::launder(reinterpret_cast<OVERLAPPED*>(overlapped_));
    DWORD transferred = 0;
    const bool succeeded =
        ::GetOverlappedResult(toHandle(device_), overlapped, &transferred, FALSE) != FALSE;
    inFlight_ = !succeeded && ::GetLastError() == ERROR_IO_INCOMPLETE;
    return succeeded;
}

void Device::cancelAndWait() noexcept {
    const ErrorKeeper keeper;
    auto* const overlapped = std::launder(reinterpret_cast<OVERLAPPED*>(overlapped_));
    DWORD transferred = 0;
    ::CancelIoEx(toHandle(device_), overlapped);
    ::GetOverlappedResult(toHandle(device_), overlapped, &transferred, TRUE);
    inFlight_ = false;
}

void Device::close() noexcept {
    if (inFlight_) cancelAndWait();
    closeQuietly(std::exchange(event_, kNoHandle));
    closeQuietly(std::exchange(device_, kNoHandle));
}

}  // namespace wrenlink::os
