// Lets calls fail by plan: those of the primitives of platform/os.h, those that the primitives make
// of the operating system (POSIX), and those for memory. Decorators stand in the way of all of them
// from the link on, and let everything pass while there is no plan.
//
// A plan counts the calls that are made inside windows: what a test itself does stays outside. One
// thread uses all of this.
#ifndef WRENLINK_TESTS_FAULTS_FAULTS_H
#define WRENLINK_TESTS_FAULTS_FAULTS_H

#include <cstddef>
#include <optional>
#include <vector>

namespace wrenlink::test {

// What can fail. All but the last are primitives: each function of platform/os.h that reports a
// failure, be it by false, null, an invalid object or an empty list, and no other, is here, in the
// list of CMakeLists.txt and in primitives.cpp; what hosts are promised of it is in
// tests/exports/every_call_test.cpp.
enum class Call {
    chooseNamespace,
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
    enum class Among {
        primitives,
        systemCalls,
        interruptions,  // of the system calls that are repeated then
        allocations,
    } among;
    // Which call fails, counted from 1; 0 for none.
    unsigned first;
    enum class AndThen {
        nothing,
        everySuch,  // all later calls of the same primitive
        everything,
    } andThen;
};

// Starts counting anew.
void planFaults(const FaultPlan& plan);
// The calls that the plan has counted.
unsigned countedCalls();
// The primitives that have failed by plan since this was asked last, in order, and with which
// native error code. Each call has a code of its own.
struct FailedCall {
    Call call;
    int code;
};
std::vector<FailedCall> takeFailedCalls();

class FaultWindow {
   public:
    explicit FaultWindow(bool open = true);
    FaultWindow(const FaultWindow&) = delete;
    FaultWindow& operator=(const FaultWindow&) = delete;
    ~FaultWindow();

   private:
    const bool before_;
};
// Closes the window around a host's function that the library calls back.
struct FaultPause : FaultWindow {
    FaultPause() : FaultWindow(false) {}
};

// POSIX: whether there are the calls that only newer systems know. At first there are none: the
// library makes others then, which can fail. Once it has missed one it does not try again.
void offerShortCuts(bool offered);

// How many blocks of memory are in use.
std::size_t liveAllocations();

// ---- For the decorators ----

// Counts a call and tells whether it is to fail, with this code.
bool fails(FaultPlan::Among kind, Call call, int code);

// A primitive at work: its failed system calls count as its own failures, and no others fail.
class PrimitiveScope {
   public:
    explicit PrimitiveScope(Call call);
    PrimitiveScope(const PrimitiveScope&) = delete;
    PrimitiveScope& operator=(const PrimitiveScope&) = delete;
    ~PrimitiveScope();

   private:
    std::optional<Call> around_;
};
bool systemCallFails(FaultPlan::Among kind, int code);

}  // namespace wrenlink::test

#endif
