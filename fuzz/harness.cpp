#include "fuzz/harness.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "platform/os.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::fuzz {
namespace {

constexpr char kPath[] = "/fuzz/adapter";
constexpr std::uint32_t kRefusal = EINVAL;

const test::TestRuntime runtime;
const std::unique_ptr<quillsim::Adapter> model = std::make_unique<quillsim::Adapter>(100, kRefusal);
Wire* wire = nullptr;

Bytes reply;  // of the request in flight

}  // namespace

void require(bool good, const char* what) {
    if (good) return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::abort();
}

Wire::Wire() {
    std::destroy_at(model.get());
    std::construct_at(model.get(), 100, kRefusal);
    wire = this;
}

Wire::~Wire() { wire = nullptr; }

quillsim::Adapter& Wire::adapter() { return *model; }

Bytes Wire::serve(const Bytes& frame, std::size_t capacity) {
    Bytes room(quillsim::kReplyRoom);
    const quillsim::Answer answer =
        model->handle({quillsim::kControlCode, static_cast<std::uint32_t>(capacity), frame}, room);
    allGood_ = allGood_ && answer.status == 0;
    room.resize(answer.replySize);
    return room;
}

}  // namespace wrenlink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    wrenlink::fuzz::run(input);
    return 0;
}

namespace wrenlink::os {

std::vector<std::string> presentAdapters(std::size_t) { return {fuzz::kPath}; }

bool Device::open(const char* path) noexcept {
    fuzz::require(path == std::string(fuzz::kPath), "the library opens the adapter it was told of");
    return true;
}

bool Device::makeEvent() noexcept { return true; }

RequestStart Device::start(std::uint32_t, const void* request, std::size_t size, void* room,
                           std::size_t capacity) noexcept {
    const auto* bytes = static_cast<const std::uint8_t*>(request);
    const fuzz::Bytes frame(bytes, bytes + size);
    fuzz::wire->hear(frame);
    fuzz::reply = fuzz::wire->serve(frame, capacity);
    reply_ = room;
    return RequestStart::pending;
}

WaitResult Device::wait(std::uint32_t) noexcept { return WaitResult::acquired; }

bool Device::outcome() noexcept {
    std::copy(fuzz::reply.begin(), fuzz::reply.end(), static_cast<std::uint8_t*>(reply_));
    return true;
}

void Device::close() noexcept {}

}  // namespace wrenlink::os
