#include "tests/schedules/machine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <new>
#include <utility>

namespace wrenlink::test {

Machine& machine() {
    static auto& theMachine = *new Machine;  // used until the process has ended
    return theMachine;
}

void Machine::restart() {
    objects.clear();
    holders.clear();
    powerOn();
}

void Machine::powerOn() { adapter.settings.spi = {.delay = quillsim::kPowerOnDelay}; }

os::NativeHandle Machine::open(Object object) {
    objects.emplace(++latestHandle, std::move(object));
    return latestHandle;
}

void Machine::close(os::NativeHandle& handle) {
    objects.erase(std::exchange(handle, os::kNoHandle));
}

Machine::Bytes Machine::mapping(std::string_view kernelName) const {
    for (const auto& [handle, object] : objects)
        if (object.name == kernelName && !object.isView && isAlive(object.owner))
            return object.bytes;
    return nullptr;
}

bool Machine::isHeld(std::string_view mutex) const {
    const auto holder = holders.find(mutex);
    return holder != holders.end() && isAlive(holder->second);
}

void Machine::carryOut(const quillsim::Request& request, void* reply, os::ErrorCode& outcome) {
    std::array<std::uint8_t, quillsim::kReplyRoom> room;
    const quillsim::Answer answer = adapter.handle(request, room);
    if (hear) hear(request.frame, answer.status == 0);
    const os::ErrorCode struck = std::exchange(fault, 0U);
    outcome = answer.status != 0 ? answer.status : struck;
    if (outcome == 0) std::copy_n(room.data(), answer.replySize, static_cast<std::uint8_t*>(reply));
    // Adapters may forget their settings when the interface changes.
    if (quillsim::codeOf(request.frame) == quillsim::Code::setMode) powerOn();
}

}  // namespace wrenlink::test

// ---- platform/os.h: a primitive that another host can notice is a step -------------------------

namespace wrenlink::os {
namespace {

using test::kSilence;
using test::kUnplugged;
using test::Life;
using test::machine;
using test::Machine;
using test::ownLife;
using test::reach;

// Hosts share the mutexes of this process, as they share what the library keeps for a process. One
// who dies leaves them free: its own process would have had others.
struct Local {
    Life holder = test::kNoLife;
    unsigned holds = 0;
};
static_assert(sizeof(Local) <= sizeof(LocalMutex));

Local& local(std::byte* native) { return *reinterpret_cast<Local*>(native); }

void take(Local& mutex) {
    if (std::exchange(mutex.holder, ownLife()) != ownLife()) mutex.holds = 0;
    ++mutex.holds;
}

}  // namespace

bool chooseNamespace() noexcept { return true; }

KernelMutex::KernelMutex(std::string_view kernelName) noexcept
    : handle_(machine().open({std::string(kernelName)})) {}

bool KernelMutex::valid() const noexcept { return handle_ != kNoHandle; }

// The library waits without a limit.
WaitResult KernelMutex::wait(std::uint32_t) noexcept {
    const std::string& name = machine().objects[handle_].name;
    reach("lock", name);
    Life& holder = machine().holders[name];
    test::awaitFree(holder);
    const Life former = std::exchange(holder, ownLife());
    return former == test::kNoLife ? WaitResult::acquired : WaitResult::abandoned;
}

bool KernelMutex::release() noexcept {
    const std::string& name = machine().objects[handle_].name;
    const bool held = std::exchange(machine().holders[name], test::kNoLife) == ownLife();
    reach("go on after unlocking", name);
    return held;
}

void KernelMutex::close() noexcept { machine().close(handle_); }

LocalMutex::LocalMutex() noexcept { new (native_) Local; }
void LocalMutex::destroy() noexcept {}

void LocalMutex::enter() noexcept {
    reach("enter");
    if (local(native_).holder != ownLife()) test::awaitFree(local(native_).holder);
    take(local(native_));
}

void LocalMutex::leave() noexcept {
    Local& mutex = local(native_);
    if (mutex.holder == ownLife() && --mutex.holds == 0) mutex.holder = test::kNoLife;
}

FileMapping FileMapping::open(std::string_view kernelName, std::size_t size,
                              bool& existed) noexcept {
    reach("open", kernelName);
    Machine::Bytes bytes = machine().mapping(kernelName);
    existed = bytes != nullptr;
    if (!existed) bytes = std::make_shared<std::vector<std::byte>>(size);
    FileMapping mapping;
    mapping.handle_ = machine().open({std::string(kernelName), bytes});
    return mapping;
}

bool FileMapping::valid() const noexcept { return handle_ != kNoHandle; }

void* FileMapping::map(std::size_t) noexcept {
    const Machine::Object& mapping = machine().objects[handle_];
    reach("map", mapping.name);
    machine().open({mapping.name, mapping.bytes, true});
    return mapping.bytes->data();
}

void FileMapping::unmap(void* view, std::size_t) noexcept {
    for (auto& [handle, object] : machine().objects)
        if (object.isView && object.owner == ownLife() && object.bytes->data() == view)
            return static_cast<void>(machine().objects.erase(handle));
}

void FileMapping::close() noexcept {
    if (valid()) reach("close", machine().objects[handle_].name);
    machine().close(handle_);
}

std::vector<std::string> presentAdapters(std::size_t) { return {"/adapters/quill"}; }

bool Device::open(const char* devicePath) noexcept {
    device_ = machine().open({devicePath});
    return true;
}

bool Device::makeEvent() noexcept { return true; }

RequestStart Device::start(std::uint32_t controlCode, const void* request, std::size_t requestSize,
                           void* reply, std::size_t replyCapacity) noexcept {
    const quillsim::Bytes frame(static_cast<const std::uint8_t*>(request), requestSize);
    reach("send", quillsim::findCommand(quillsim::codeOf(frame))->name);
    machine().carryOut({controlCode, static_cast<std::uint32_t>(replyCapacity), frame}, reply,
                       machine().objects[device_].outcome);
    return RequestStart::pending;
}

WaitResult Device::wait(std::uint32_t) noexcept {
    reach("wait");
    const ErrorCode outcome = machine().objects[device_].outcome;
    if (outcome == kUnplugged) machine().powerOn();
    setLastError(outcome);
    return outcome == kSilence ? WaitResult::timedOut : WaitResult::acquired;
}

bool Device::outcome() noexcept {
    setLastError(machine().objects[device_].outcome);
    return lastError() == 0;
}

void Device::close() noexcept { machine().close(device_); }

}  // namespace wrenlink::os
