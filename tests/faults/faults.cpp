#include "tests/faults/faults.h"

#include <optional>
#include <utility>

namespace wrenlink::test {
namespace {

struct {
    FaultPlan plan{};
    Call first{};  // what the plan's first failure was
    unsigned counted = 0;
    std::vector<FailedCall> failed;
    bool windowOpen = false;
} state;

// Other threads' system calls are none of the primitive's, even if a sanitizer makes them.
constinit thread_local std::optional<Call> primitive;

bool isPlanned(Call call) {
    if (state.plan.first == 0 || state.counted < state.plan.first) return false;
    if (state.counted == state.plan.first) state.first = call;
    switch (state.plan.andThen) {
        case FaultPlan::AndThen::everySuch:
            return call == state.first;
        case FaultPlan::AndThen::everything:
            return true;
        default:
            return state.counted == state.plan.first;
    }
}

}  // namespace

void planFaults(const FaultPlan& plan) {
    state.plan = plan;
    state.counted = 0;
    state.failed.clear();
}

unsigned countedCalls() { return state.counted; }

std::vector<FailedCall> takeFailedCalls() { return std::exchange(state.failed, {}); }

FaultWindow::FaultWindow(bool open) : before_(std::exchange(state.windowOpen, open)) {}
FaultWindow::~FaultWindow() { state.windowOpen = before_; }

bool fails(FaultPlan::Among kind, Call call, int code) {
    if (!state.windowOpen || kind != state.plan.among) return false;
    ++state.counted;
    if (!isPlanned(call)) return false;
    const FaultPause pause;  // remembering takes memory
    state.failed.push_back({call, code});
    return true;
}

PrimitiveScope::PrimitiveScope(Call call) : around_(std::exchange(primitive, call)) {}
PrimitiveScope::~PrimitiveScope() { primitive = around_; }

bool systemCallFails(FaultPlan::Among kind, int code) {
    return primitive && fails(kind, *primitive, code);
}

}  // namespace wrenlink::test
