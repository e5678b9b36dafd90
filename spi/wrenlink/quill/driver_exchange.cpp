#include "quill/driver_exchange.h"

#include "diag/result_sentry.h"
#include "platform/named_mutex.h"
#include "platform/os.h"
#include "quill/adapter_settings.h"
#include "quill/frame.h"
#include "quill/last_error.h"

namespace wrenlink {
namespace {

// CTL_CODE of an unknown device type, function 0, buffered, any access.
constexpr std::uint32_t kControlCode = 0x220000;
constexpr std::uint32_t kTimeLimitMs = 1000;
constexpr std::size_t kPlatformTextSize = 1024;

struct Failure {
    int code;
    const char* text;
};

constexpr Failure kCannotOpen = {515, "Unable to open USB driver"};
constexpr Failure kNoEvent = {516, "Failed to create event for driver IO"};
constexpr Failure kIoFailed = {516, "Driver IO failed"};
constexpr Failure kTimedOut = {516, "Driver IO timed out"};

void markProfile(unsigned long level) {
    if (CTheMsgHnd::DebugActivated()) messageHandler("Quill_Command").DebugOutputProfile(level);
}

// Null on success.
const Failure* exchange(os::Device& device, const std::uint8_t* request, std::uint8_t* replyBase,
                        const char* devicePath) {
    if (!device.open(devicePath)) return &kCannotOpen;
    if (!device.makeEvent()) return &kNoEvent;
    const std::size_t requestSize = little16(request + kRequestLengthOffset) + kLengthBytes;
    const std::size_t replySize = little16(request + kReplyLengthOffset);
    if (device.start(kControlCode, request, requestSize, replyBase + kCodeOffset, replySize) ==
        os::RequestStart::failed)
        return &kIoFailed;
    if (device.wait(kTimeLimitMs) != os::WaitResult::acquired) return &kTimedOut;
    if (!device.outcome()) return &kIoFailed;
    return nullptr;
}

void storeFailure(const Failure& failure, os::ErrorCode nativeError) {
    char platformText[kPlatformTextSize];
    os::errorText(nativeError, platformText, sizeof platformText);
    Quill_SetLastError(failure.code, 0, "%s: %s", platformText, failure.text);
}

}  // namespace

bool Quill_Command(std::uint8_t* request, std::uint8_t* replyBase, const char* devicePath,
                   AdapterSettings* settings) {
    bool result = false;
    const ResultTrace<bool> trace(result);
    request[kReservedOffset] = 0;

    // Without the mutex, if it cannot be had: an only user does not need it.
    NamedMutex mutex(devicePath);
    const NamedMutexGuard turn(mutex);
    SettingsExchange touched(settings, request);
    os::Device device;  // closed before the turn ends
    markProfile(5);
    const Failure* failure = exchange(device, request, replyBase, devicePath);
    const os::ErrorCode nativeError = os::lastError();
    markProfile(0);
    if (failure != nullptr) {
        storeFailure(*failure, nativeError);
        return result;
    }
    touched.succeeded(replyBase);
    return result = true;
}

}  // namespace wrenlink
