// An adapter is a device interface of the class that its driver registers; each exchange opens the
// interface anew and makes one overlapped control request.
//
// A driver need not give a request back when it is cancelled, and nobody else can end it. So what
// the system writes when a request ends, then or long after the call, lies in memory of the
// process, which outlives the call and this module. The device is closed all the same: that tells
// the driver to clean up, which is its last chance to end the request, and does not wait for it,
// since the request itself keeps the file open. The thread that made it, and the process, cannot
// quite end before it does; the system sees to that.
#include <windows.h>
// setupapi.h needs the types of windows.h.
#include <setupapi.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "platform/native_windows.h"
#include "platform/os.h"

namespace wrenlink::os {

// A block of memory, with the reply's room behind this.
struct DriverRequest {
    OVERLAPPED overlapped;  // with the event
    std::size_t capacity;   // of the reply's room, in bytes
    DriverRequest* next;    // among those left behind

    std::byte* reply() noexcept { return reinterpret_cast<std::byte*>(this + 1); }
};

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

bool isSignalled(NativeHandle event, DWORD milliseconds) noexcept {
    return ::WaitForSingleObject(toHandle(event), milliseconds) == WAIT_OBJECT_0;
}

// The requests of this module that are not in use: one that the next exchange takes, so that most
// allocate nothing, and those that drivers keep.
class Requests {
   public:
    Requests() = default;
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;
    // What drivers keep even now is never freed.
    ~Requests() {
        giveBack(nullptr);
        freeEnded();
    }

    // Null, with the error code, without memory.
    DriverRequest* take(NativeHandle event, std::size_t capacity) noexcept {
        DriverRequest* request = spare_.exchange(nullptr);
        if (request == nullptr || request->capacity < capacity) {
            free(request);
            request = static_cast<DriverRequest*>(
                ::HeapAlloc(::GetProcessHeap(), 0, sizeof(DriverRequest) + capacity));
            if (request == nullptr) {
                ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                return nullptr;
            }
            request->capacity = capacity;
        }
        request->overlapped = {};
        request->overlapped.hEvent = toHandle(event);
        return request;
    }

    void giveBack(DriverRequest* request) noexcept { free(spare_.exchange(request)); }

    // Takes the event too.
    void leaveBehind(DriverRequest* request) noexcept {
        freeEnded();
        push(request);
    }

   private:
    static void free(DriverRequest* request) noexcept {
        if (request != nullptr) ::HeapFree(::GetProcessHeap(), 0, request);
    }

    void push(DriverRequest* request) noexcept {
        request->next = leftBehind_;
        while (!leftBehind_.compare_exchange_weak(request->next, request)) {
        }
    }

    // The system is done with a request when it signals the event.
    void freeEnded() noexcept {
        DriverRequest* next = leftBehind_.exchange(nullptr);
        while (DriverRequest* const request = next) {
            next = request->next;
            const NativeHandle event = fromHandle(request->overlapped.hEvent);
            if (isSignalled(event, 0)) {
                closeQuietly(event);
                free(request);
            } else {
                push(request);
            }
        }
    }

    std::atomic<DriverRequest*> spare_ = nullptr;
    std::atomic<DriverRequest*> leftBehind_ = nullptr;
};
constinit Requests requests;

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
    request_ = requests.take(event_, replyCapacity);
    if (request_ == nullptr) return RequestStart::failed;
    reply_ = reply;
    replyCapacity_ = replyCapacity;
    DWORD transferred = 0;
    if (::DeviceIoControl(toHandle(device_), controlCode, const_cast<void*>(request),
                          static_cast<DWORD>(requestSize), request_->reply(),
                          static_cast<DWORD>(replyCapacity), &transferred, &request_->overlapped)) {
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
    DWORD transferred = 0;
    const bool succeeded = ::GetOverlappedResult(toHandle(device_), &request_->overlapped,
                                                 &transferred, FALSE) != FALSE;
    inFlight_ = !succeeded && ::GetLastError() == ERROR_IO_INCOMPLETE;
    if (succeeded) {
        std::copy_n(request_->reply(), std::min<std::size_t>(transferred, replyCapacity_),
                    static_cast<std::byte*>(reply_));
    }
    return succeeded;
}

void Device::cancelAndWait() noexcept {
    ::CancelIoEx(toHandle(device_), &request_->overlapped);
    inFlight_ = !isSignalled(event_, kCancelLimitMs);
}

void Device::close() noexcept {
    const ErrorKeeper keeper;
    if (inFlight_) cancelAndWait();
    DriverRequest* const request = std::exchange(request_, nullptr);
    if (std::exchange(inFlight_, false)) {
        requests.leaveBehind(request);
        event_ = kNoHandle;
    } else if (request != nullptr) {
        requests.giveBack(request);
    }
    closeQuietly(std::exchange(event_, kNoHandle));
    closeQuietly(std::exchange(device_, kNoHandle));
}

}  // namespace wrenlink::os
