#include "tests/faults/faults.h"

#include <utility>

namespace wrenlink::test {
namespace {

struct {
    FaultPlan plan{};
    Call first{};  // what the plan's first failure was
    unsigned counted = 0;
    std::vector<Call> failed;
    bool windowOpen = false;
} state;

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

std::vector<Call> takeFailedCalls() { return std::exchange(state.failed, {}); }

FaultWindow::FaultWindow() { state.windowOpen = true; }
FaultWindow::~FaultWindow() { state.windowOpen = false; }
FaultPause::FaultPause() { state.windowOpen = false; }
FaultPause::~FaultPause() { state.windowOpen = true; }

int nativeCodeOf(Call call) { return static_cast<int>(call) + 1; }

bool fails(Call call) {
    const bool isAllocation = call == Call::allocation;
    if (!state.windowOpen || isAllocation != (state.plan.among == FaultPlan::Among::allocations)) {
        return false;
    }
    ++state.counted;
    if (!isPlanned(call)) return false;
    const FaultPause pause;  // remembering takes memory
    state.failed.push_back(call);
    return true;
}

}  // namespace wrenlink::test
