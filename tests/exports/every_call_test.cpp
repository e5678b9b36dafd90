// Fails every call below the library once, and again with all that follow: each scenario's first
// call of the operating system, its second, and so on until a run meets no failure; then the same
// for memory. After each the host has seen what it was promised, the library has left nothing
// behind, and the scenario succeeds.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <thread>

#include "platform/named_mutex.h"
#include "platform/os.h"
#include "tests/exports/fault_scenarios.h"
#include "tests/faults/faults.h"
#include "tests/support/loaded_module.h"
#include "tests/support/store_registry.h"

namespace wrenlink::test {
namespace {

using Among = FaultPlan::Among;
using AndThen = FaultPlan::AndThen;
using Calls = std::vector<FailedCall>;
using Needs = Step::Needs;

// ---- What hosts are promised -------------------------------------------------------------------

enum class Effect {
    none,      // the library does without
    exchange,  // the exchange fails: a code and a text behind the system's own
    noDelays,  // tried again with the next use; what needs it meanwhile fails
    noAdapters,
    noMapFile,
    noRecord,  // the thread's first error becomes another one, or is lost
};

struct Promise {
    Call call;
    Effect effect;
    int code = 0;
    const char* text = "";
};

constexpr Promise kPromises[] = {
    {Call::chooseNamespace, Effect::noAdapters},
    {Call::kernelMutex, Effect::none},
    {Call::mutexWait, Effect::none},
    {Call::mutexRelease, Effect::none},
    {Call::mappingOpen, Effect::noDelays},
    {Call::mappingMap, Effect::noDelays},
    {Call::processBlock, Effect::noRecord},
    {Call::processMutex, Effect::none},
    {Call::threadIndex, Effect::noRecord},
    {Call::threadValue, Effect::noRecord},
    {Call::record, Effect::noRecord},
    {Call::adapters, Effect::noAdapters},
    {Call::deviceOpen, Effect::exchange, 515, "Unable to open USB driver"},
    {Call::deviceEvent, Effect::exchange, 516, "Failed to create event for driver IO"},
    {Call::deviceStart, Effect::exchange, 516, "Driver IO failed"},
    {Call::deviceWait, Effect::exchange, 516, "Driver IO timed out"},
    {Call::deviceOutcome, Effect::exchange, 516, "Driver IO failed"},
    {Call::environment, Effect::none},
    {Call::documents, Effect::noMapFile},
    {Call::textFile, Effect::noMapFile},
};
static_assert(std::size(kPromises) == static_cast<std::size_t>(Call::allocation));

// What a host sees of a step.
struct Sight {
    std::string text;
    Failure error{};

    friend bool operator==(const Sight&, const Sight&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Sight& sight) {
        return out << '"' << sight.text << "\", error " << sight.error;
    }
};
using Sights = std::vector<Sight>;

const Promise& promiseOf(Call call) { return *std::ranges::find(kPromises, call, &Promise::call); }

bool include(Effect effect, const Calls& calls) {
    return std::ranges::any_of(
        calls, [=](const FailedCall& failed) { return promiseOf(failed.call).effect == effect; });
}

Sight notFound(const FaultScenario& scenario) {
    return {"1", {514, 0, std::string("Couldn't find device with id (") + scenario.key + ")"}};
}

Sights afterFailedAllocations(const FaultScenario& scenario, const Step& step, const Calls& now,
                              bool forGood) {
    Sights sights = {{step.right}};
    // A map file that cannot be opened for want of memory counts as none.
    if (step.needs == Needs::adapter && scenario.mapFile != nullptr)
        sights.push_back(notFound(scenario));
    if (now.empty()) return sights;
    sights.push_back({step.lost, {257, 0, "Out of memory"}});
    if (step.needs == Needs::errorStore) sights.push_back({step.failed});
    if (step.needs == Needs::errorStore || forGood) sights.push_back({step.lost});
    return sights;
}

Sights afterFailedPrimitives(const FaultScenario& scenario, const Step& step, const Calls& now,
                             const Calls& sofar) {
    if (step.needs == Needs::errorStore && include(Effect::noRecord, sofar))
        return {{step.failed}, {step.lost}};
    if (step.needs == Needs::adapter && (include(Effect::noAdapters, sofar) ||
                                         (include(Effect::noMapFile, sofar) && scenario.mapFile)))
        return {notFound(scenario)};
    if (step.needs == Needs::delays && include(Effect::noDelays, now))
        return {{"1", {260, 0, "Error allocating shared memory for delays"}}};
    for (const FailedCall& failed : now) {
        const Promise& promise = promiseOf(failed.call);
        if (promise.effect != Effect::exchange) continue;
        std::string text = textOf(failed.code) + ": " + promise.text;
        if (*step.words != '\0') text += std::string(": ") + step.words;
        return {{step.failed, {promise.code, 0, text}}};
    }
    return {{step.right}};
}

// What a host may see of a step when these calls have failed, in it and with those before it.
Sights promised(const FaultScenario& scenario, const FaultPlan& plan, const Step& step,
                const Calls& now, const Calls& sofar) {
    const bool forGood = plan.andThen == AndThen::everything;
    if (sofar.empty() || plan.among == Among::interruptions) return {{step.right}};
    if (plan.among == Among::allocations)
        return afterFailedAllocations(scenario, step, now, forGood);
    Sights sights = afterFailedPrimitives(scenario, step, now, sofar);
    // An error then finds no place either.
    if (forGood && sights.front().error.code != 0) sights = {{step.lost}};
    return sights;
}

// ---- Running a scenario ------------------------------------------------------------------------

// Regions that are mapped, where a system lists what is.
std::size_t countViews() {
    std::ifstream mappings("/proc/self/maps");
    std::size_t count = 0;
    for (std::string line; std::getline(mappings, line);)
        if (line.find("/kvs_shm_") != std::string::npos) ++count;
    return count;
}

class EveryCall : public testing::TestWithParam<FaultScenario> {
   protected:
    EveryCall() {
        host_.key = scenario_.key;
        host_.simulator.control("xap 0 stopped");
        if (scenario_.mapFile != nullptr)
            std::ofstream(host_.simulator.documents().path() / "quillmap.txt") << scenario_.mapFile;
        // Whatever is made once and kept, by the test's own tools too, is made now.
        SCOPED_TRACE("the first runs");
        runOnce({Among::primitives, 0, AndThen::nothing});
        runOnce({Among::allocations, 1, AndThen::everything});
        expectNothingHeld();
    }

    // Takes the steps up to the first that fails, and those that are always taken.
    void walk(const FaultPlan& plan, std::size_t from, std::size_t to) {
        Calls sofar;
        bool ended = false;
        for (std::size_t i = from; i < to; ++i) {
            const Step& step = scenario_.steps[i];
            if (ended && !step.always) continue;
            const std::string text = step.run(host_);
            const Calls now = takeFailedCalls();
            sofar.insert(sofar.end(), now.begin(), now.end());
            // What was an error before is one still.
            const Sight seen = {text, host_.library && !ended ? lastFailure() : Failure()};
            const Sights possible = promised(scenario_, plan, step, now, sofar);
            if (std::ranges::find(possible, seen) == possible.end())
                ADD_FAILURE() << "A host is promised " << testing::PrintToString(possible)
                              << " of the step \"" << step.what << "\", but sees " << seen;
            ended = ended || seen != Sight{step.right};
        }
    }

    // One run with failures and one without; the steps that are prepared come before both. Returns
    // whether there was a failure.
    bool runOnce(const FaultPlan& plan) {
        constexpr FaultPlan kNone = {Among::primitives, 0, AndThen::nothing};
        ++host_.turn;
        planFaults(kNone);
        walk(kNone, 0, scenario_.prepared);
        planFaults(plan);
        walk(plan, scenario_.prepared, scenario_.steps.size());
        const bool clean = countedCalls() < plan.first;
        planFaults(kNone);
        if (host_.library) spifns_clear_last_error();
        walk(kNone, scenario_.prepared, scenario_.steps.size());
        host_.end();
        return !clean;
    }

    // What the library makes for itself and for others has gone. The locks are tried from a thread
    // of its own, since a thread may hold one twice.
    void expectNothingHeld() {
        EXPECT_TRUE(os::chooseNamespace());
        std::vector<std::string> locks = os::presentAdapters(1);
        for (const auto& [region, size] :
             {std::pair("quilldelays100", std::size_t{2}), {"quillcmdbits100", 4}}) {
            locks.emplace_back(region);
            bool existed = true;
            const std::string name = std::string("kvs_shm_") + region;
            EXPECT_TRUE(os::FileMapping::open(name, size, existed).valid());
            EXPECT_FALSE(existed) << name;
        }
        std::thread([&] {
            for (const std::string& name : locks)
                EXPECT_EQ(os::KernelMutex(mutexKernelName(name)).wait(0), os::WaitResult::acquired);
        }).join();
        EXPECT_TRUE(storeIsGone());
    }

    const FaultScenario& scenario_ = GetParam();
    FaultyHost host_;
};

TEST_P(EveryCall, MayFail) {
    const struct {
        const char* name;
        Among among;
        AndThen andThen;
    } kinds[] = {
        {"a primitive once", Among::primitives, AndThen::nothing},
        {"a primitive for good", Among::primitives, AndThen::everySuch},
        {"all primitives from one on", Among::primitives, AndThen::everything},
        {"a system call once", Among::systemCalls, AndThen::nothing},
        {"all system calls from one on", Among::systemCalls, AndThen::everything},
        {"a system call is interrupted and", Among::interruptions, AndThen::nothing},
        {"an allocation once", Among::allocations, AndThen::nothing},
        {"all allocations from one on", Among::allocations, AndThen::everything},
    };
    const Holdings before = takeStock();
    for (const auto& kind : kinds) {
        unsigned runs = 0;
        // Up to a run without a failure, with either form of the exports.
        for (int clean = 0; clean < 2 && !HasFailure(); host_.legacy = !host_.legacy) {
            SCOPED_TRACE(kind.name + (" from call " + std::to_string(runs + 1)));
            const std::size_t allocations = liveAllocations();
            const bool failed = runOnce({kind.among, runs + 1, kind.andThen});
            EXPECT_EQ(liveAllocations(), allocations);
            EXPECT_EQ(countViews(), 0U);
            clean = failed ? 0 : clean + 1;
            if (failed) ++runs;
        }
        std::cout << kind.name << " fails: " << runs << " runs\n";
        const bool certain = kind.among == Among::primitives || kind.among == Among::allocations;
        EXPECT_TRUE(runs > 0 || scenario_.prepared > 0 || !certain) << kind.name << " never";
        const Holdings after = takeStock();
        EXPECT_LE(after.handles, before.handles + kStrayHandles) << kind.name;
        EXPECT_EQ(after.threadIndex, before.threadIndex) << kind.name;
        expectNothingHeld();
    }
}

INSTANTIATE_TEST_SUITE_P(Of, EveryCall, testing::ValuesIn(kFaultScenarios),
                         [](const auto& scenario) { return scenario.param.name; });

}  // namespace
}  // namespace wrenlink::test
