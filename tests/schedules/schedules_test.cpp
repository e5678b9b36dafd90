// Two and three hosts at one adapter, in every order of their steps.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "tests/exports/host.h"
#include "tests/schedules/machine.h"
#include "tests/schedules/schedule.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::test {
namespace {

// What a host does in its schedule, with the stream that it has.
using Work = std::function<void(const Stream& stream)>;

void expectSuccess(int status) {
    if (status != 0) complain("a host is told: " + lastFailure().text);
}

Work run(const char* steps) {
    return [=](const Stream& stream) { expectSuccess(stream.run(steps)); };
}

// The fault may befall this host, or another.
Work tryTo(const char* steps) {
    return [=](const Stream& stream) { stream.run(steps); };
}

Work readWithBits(const char* bits) {
    return [=](const Stream& stream) {
        Words words(2);
        expectSuccess(stream.run({setting("SPICMDREADBITS", bits), readInto(0x10, words)}));
        if (words != wordsAt(0x10, 2)) complain("words that arrived are wrong");
    };
}

Work getDelay(const char* possible) {
    return [=](const Stream& stream) {
        const std::string delay = stream.get("SPI_DELAY");
        if (std::strstr(possible, delay.c_str()) == nullptr)
            complain("a host is told a delay of " + delay);
    };
}

void close(const Stream& stream) { spifns_stream_close(stream.id()); }

struct Host {
    const char* before;  // steps that it has taken already
    Work work;
};

struct Scenario {
    const char* name;
    std::vector<Host> hosts;
    os::ErrorCode fault = 0;

    friend std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
        return out << scenario.name;
    }
};

const char* const kSelected = "SPIPORT=0";
const Scenario kScenarios[] = {
    {"SetAndSet", {{kSelected, run("SPI_DELAY=5")}, {kSelected, run("SPI_DELAY=7")}}},
    {"SetAndGet", {{kSelected, run("SPI_DELAY=5")}, {kSelected, getDelay("4 5")}}},
    {"SetAndMode", {{kSelected, run("SPI_DELAY=5")}, {kSelected, run("QUILLMODE=SPI")}}},
    {"BitsAndOtherBits", {{kSelected, readWithBits("1")}, {kSelected, readWithBits("2")}}},
    {"SelectAndClose", {{"", run(kSelected)}, {"SPIPORT=0 SPI_DELAY=5", close}}},
    {"TimeOutAndSet",
     {{"SPIPORT=0 SPI_DELAY=9", tryTo("SPI_DELAY=5")}, {kSelected, tryTo("SPI_DELAY=7")}},
     kSilence},
    {"UnplugAndSet",
     {{"SPIPORT=0 SPI_DELAY=9", tryTo("r10:2")}, {kSelected, tryTo("SPI_DELAY=7")}},
     kUnplugged},
    {"SelectAndSelect", {{"", run(kSelected)}, {"", run(kSelected)}}},
    {"SetAndSetAndGet",
     {{kSelected, run("SPI_DELAY=5")},
      {kSelected, run("SPI_DELAY=7")},
      {kSelected, getDelay("4 5 7")}}},
};

// ---- What holds at every step ------------------------------------------------------------------

// The record in a region: what the adapter holds, or that it is unknown, but while it is made.
template <std::size_t count>
void checkRecord(std::string_view region, std::string_view mutex,
                 const std::array<std::uint16_t, count>& held) {
    const Machine::Bytes bytes = machine().mapping(region);
    if (bytes == nullptr || machine().isHeld(mutex)) return;
    std::array<std::uint16_t, count> cached;
    std::memcpy(cached.data(), bytes->data(), sizeof cached);
    for (std::size_t i = 0; i < count; ++i)
        if (cached[i] != 0xFFFF && cached[i] != held[i])
            complain(std::string(region) + " says " + std::to_string(cached[i]) +
                     ", but the adapter has " + std::to_string(held[i]));
}

// Whenever nobody exchanges.
void checkRecords() {
    if (machine().isHeld("kvs_mutex_-adapters-quill")) return;
    const quillsim::RequestContext& held = machine().adapter.settings.spi;
    checkRecord<1>("kvs_shm_quilldelays100", "kvs_mutex_quilldelays100", {held.delay});
    checkRecord<2>("kvs_shm_quillcmdbits100", "kvs_mutex_quillcmdbits100",
                   {held.readBits, held.writeBits});
}

// ---- The walk ----------------------------------------------------------------------------------

// Runs the present schedule of a scenario.
void runSchedule(const Scenario& scenario, bool printed) {
    const std::size_t count = scenario.hosts.size();
    const std::vector<Life> lives = beginSchedule(printed);
    machine().restart();
    std::vector<std::unique_ptr<Stream>> streams(count);
    std::vector<std::function<void()>> bodies;
    for (std::size_t i = 0; i < count; ++i) {
        ownLife() = lives[i];
        streams[i] = std::make_unique<Stream>();
        expectSuccess(streams[i]->run(scenario.hosts[i].before));
        bodies.emplace_back([&, i] { scenario.hosts[i].work(*streams[i]); });
    }
    machine().fault = scenario.fault;
    runHosts(bodies);
    for (const auto& [mutex, holder] : machine().holders)
        if (isAlive(holder)) complain(mutex + " is left locked");
    if (machine().fault != 0 && !hasDied()) complain("the fault has befallen nobody");
    layDeadToRest();
    for (std::size_t i = 0; i < count; ++i) {
        ownLife() = lives[i];
        streams[i] = nullptr;
    }
    ownLife() = kNoLife;
    for (const auto& [handle, object] : machine().objects)
        if (isAlive(object.owner)) complain(object.name + " is left open");
}

class Schedules : public testing::TestWithParam<Scenario> {};

// WRENLINK_SCHEDULE chooses a schedule that is shown, by its number.
TEST_P(Schedules, Hold) {
    const SharedDocuments documents;
    const Stream layer;  // keeps the adapter layer up
    for (const unsigned i : {0U, 1U}) machine().adapter.setWord(0x10 + i, wordsAt(0x10, 2)[i]);
    const char* const wanted = std::getenv("WRENLINK_SCHEDULE");
    const unsigned long shown = wanted == nullptr ? 0 : std::stoul(wanted);
    const std::size_t hosts = GetParam().hosts.size();
    const bool isLong = scale() > 1;
    // Three hosts have too many schedules for more.
    startWalk({hosts, isLong ? 3U : 2U, isLong || hosts == 2 ? 1U : 0U, checkRecords});
    unsigned long number = 0;
    unsigned long deaths = 0;
    do {
        runSchedule(GetParam(), ++number == shown);
        deaths += hasDied() ? 1 : 0;
        if (firstProblem().empty()) continue;
        ADD_FAILURE() << "schedule " << number << ": " << firstProblem();
        runSchedule(GetParam(), true);
        break;
    } while (turnToNext());
    std::cout << GetParam() << ": " << number << " schedules, " << deaths << " with a death\n";
}

INSTANTIATE_TEST_SUITE_P(All, Schedules, testing::ValuesIn(kScenarios),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace wrenlink::test
