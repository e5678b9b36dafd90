// The machine that the hosts of a schedule run on: the mutexes, mappings and devices of
// platform/os.h inside this process, and one adapter that answers at once. Each host is a process
// to it: what it has open, and holds, ends with its life.
#ifndef WRENLINK_TESTS_SCHEDULES_MACHINE_H
#define WRENLINK_TESTS_SCHEDULES_MACHINE_H

#include <cerrno>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os.h"
#include "sim/model/adapter.h"
#include "tests/schedules/schedule.h"

namespace wrenlink::test {

// What may befall a request, as the error with which it ends.
inline constexpr os::ErrorCode kSilence = ETIMEDOUT;  // it is carried out, and nobody is told
inline constexpr os::ErrorCode kUnplugged = ENODEV;   // another adapter, just powered on, is there

struct Machine {
    using Bytes = std::shared_ptr<std::vector<std::byte>>;
    // A handle, or a view, which does not keep its mapping's name.
    struct Object {
        std::string name;
        Bytes bytes{};  // of a mapping or a view
        bool isView = false;
        os::ErrorCode outcome = 0;  // of a device's request
        Life owner = ownLife();
    };

    // As when it is powered on, with nothing open.
    void restart();
    void powerOn();
    os::NativeHandle open(Object object);
    void close(os::NativeHandle& handle);
    // The mapping of a kernel name; null when nobody alive has it.
    Bytes mapping(std::string_view kernelName) const;
    bool isHeld(std::string_view mutex) const;
    void carryOut(const quillsim::Request& request, void* reply, os::ErrorCode& outcome);

    quillsim::Adapter adapter{100, EINVAL};
    // Told of each request, and whether it is well formed.
    std::function<void(quillsim::Bytes frame, bool good)> hear;
    os::ErrorCode fault = 0;  // befalls the next request, whoever sends it
    std::map<os::NativeHandle, Object> objects;
    std::map<std::string, Life, std::less<>> holders;  // of mutexes, by their kernel names
    os::NativeHandle latestHandle = 0;
};

Machine& machine();

}  // namespace wrenlink::test

#endif
