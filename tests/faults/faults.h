// Lets calls fail by plan: those that the library makes to the operating system through the
// primitives of platform/os.h, and those with which it asks for memory. The decorators of both
// stand in their way from the link on, and let everything pass while there is no plan.
//
// A plan counts the calls that are made inside windows: what a test itself does stays outside. One
// thread uses all of this.
#ifndef WRENLINK_TESTS_FAULTS_FAULTS_H
#define WRENLINK_TESTS_FAULTS_FAULTS_H

#include <cstddef>
#include <vector>

namespace wrenlink::test {

// What can fail. All but the last are primitives.
enum class Call {
    kernelMutex,
    mutexWait,
    mutexRelease,
    mappingOpen,
    mappingMap,
    processBlock,
    processMutex,
    threadIndex,
    threadValue,
    record,
    adapters,
    deviceOpen,
    deviceEvent,
    deviceStart,
    deviceWait,
    deviceOutcome,
    environment,
    documents,
    textFile,
    allocation,
};

struct FaultPlan {
    enum class Among { primitives, allocations } among;
    // Which call fails, counted from 1; 0 for none.
    unsigned first;
    enum class AndThen {
        nothing,
        everySuch,  // all later calls of the same kind
        everything,
    } andThen;
};

// Starts counting anew.
void planFaults(const FaultPlan& plan);
// The calls that the plan has counted.
unsigned countedCalls();
// The calls that have failed by plan since this was asked last, in order.
std::vector<Call> takeFailedCalls();

class FaultWindow {
   public:
    FaultWindow();
    FaultWindow(const FaultWindow&) = delete;
    FaultWindow& operator=(const FaultWindow&) = delete;
    ~FaultWindow();
};
// Closes the window around a host's function that the library calls back.
class FaultPause {
   public:
    FaultPause();
    FaultPause(const FaultPause&) = delete;
    FaultPause& operator=(const FaultPause&) = delete;
    ~FaultPause();
};

// The native error code with which a call fails: its own, so that an error text tells which it was.
int nativeCodeOf(Call call);

// How many blocks of memory are in use.
std::size_t liveAllocations();

// For the decorators: counts a call and tells whether it is to fail.
bool fails(Call call);

}  // namespace wrenlink::test

#endif
