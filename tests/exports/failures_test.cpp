// What is forgotten after a failure, what fails without an adapter or its caches, and what is kept
// of the thread's last error.
#include <gtest/gtest.h>

#include "platform/named_mutex.h"
#include "platform/os.h"
#include "quill/last_error.h"
#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

const std::string kGetDelay = "0300 0400 00 0500";

TEST(Failures, MakeEveryStreamForgetWhatTheAdapterHas) {
    Simulator simulator({100, 200}, "1.9");
    const Stream failing("0");
    const Stream other("100");
    const Stream elsewhere("200");
    for (const Stream* stream : {&other, &elsewhere}) stream->run("SPI_DELAY=9 r1:1 w1:1");
    // Both forms of a command: a single one, and a batch.
    for (const char* step : {"SPIMUL=1", "r1:1"}) {
        SCOPED_TRACE(step);
        simulator.control("fault 0 refuse 5");
        EXPECT_EQ(failing.run(step), 1);
        for (const unsigned adapter : {0U, 1U}) simulator.takeFrames(adapter);
        for (const Stream* stream : {&other, &elsewhere}) {
            EXPECT_EQ(stream->get("SPI_DELAY"), "9");
            EXPECT_EQ(stream->run("r1:1 w1:1"), 0);
        }
        EXPECT_EQ(simulator.takeFrames(0), frames(kGetDelay + " | R=0 r1:1 W=0 w1:1"));
        EXPECT_EQ(simulator.takeFrames(1), frames("r1:1 w1:1"));
    }
}

const Failure kNoDelays = {260, 0, "Error allocating shared memory for delays"};
const Failure kNoCmdBits = {260, 0, "Error allocating shared memory for cmdbits"};

TEST(Failures, WithNoAdapterSelected) {
    const Simulator simulator;
    const Stream stream;
    const std::string none = "Cannot Set Delays with no device selected";
    const struct {
        const char* request;
        const char* answer;
        Failure failure;
    } cases[] = {
        {"SPI_DELAY=9", "1", {258, 0, none}},
        {"QUILLMODE=SPI", "1", kNoDelays},
        {"r1:1", "1", {514, 0, "No Quill device found: Unable to send sequence"}},
        {"?SPI_DELAY", "0", {258, 0, none}},
        {"?SPICLOCK", "4000.000000", {258, 0, none}},
        {"!SPISLOWER", "", {258, 0, none + ": Unable to slow down SPI"}},
        {"XAP", "-1", {}},
        // These store no error of their own, so that their words stand alone.
        {"SPIMUL=3", "0", {0, 0, ": Unable to set multipled device"}},
        {"MGCMD start", "0", {0, 0, ": Unable to initialise MGCMDs"}},
        {"MGCMD", "0", {0, 0, ": MGCMD cmd failed"}},
        {"!DFU", "", {0, 0, ": Unable to enable DFU mode"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.request);
        spifns_clear_last_error();
        EXPECT_EQ(stream.ask(c.request), c.answer);
        EXPECT_EQ(lastFailure(), c.failure);
    }
    EXPECT_EQ(stream.get("SPIMUL"), "3");
    spifns_stream_get_device_id(stream.id(), nullptr, 0);
    const char* text = "Device ID unavailable when port not open: Unable to set multipled device";
    EXPECT_EQ(outcome(stream.set("SPIMUL", "4")), (Failure{1, 0, text}));
}

// A region that cannot be had is missed until it can be; a mutex that cannot be had is done
// without.
TEST(Failures, WhenNamesAreTakenByOtherKinds) {
    const struct {
        const char* taken;  // "" for the adapter's own lock
        Failure delay;
        Failure mode;
        std::string frames = "R=0 r1:1 r2:1";
    } cases[] = {
        {"kvs_shm_quilldelays100", kNoDelays, kNoDelays},
        // Nobody can tell which bits the adapter has, so that they always travel.
        {"kvs_shm_quillcmdbits100", {}, kNoCmdBits, "R=0 r1:1 R=0 r2:1"},
        {"kvs_mutex_quilldelays100", {}, {}},
        {"kvs_mutex_quillcmdbits100", {}, {}},
        {"", {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.taken);
        Simulator simulator({100}, "1.9");
        ASSERT_TRUE(os::chooseNamespace());
        const std::string lock(mutexKernelName(os::presentAdapters(1).at(0)));
        simulator.occupyKernelName(*c.taken == '\0' ? lock : c.taken);
        const Stream stream("0");
        EXPECT_EQ(outcome(stream.set("SPI_DELAY", "9")), c.delay);
        EXPECT_EQ(outcome(stream.set("QUILLMODE", "JTAG")), c.mode);
        simulator.takeFrames();
        EXPECT_EQ(stream.run("r1:1 r2:1"), 0);
        EXPECT_EQ(simulator.takeFrames(), frames(c.frames));
    }
}

TEST(LastError, IsWhatWasStoredAndAppended) {
    const std::string full(1023, 'x');
    const std::string almostFull(1020, 'x');
    const struct {
        Failure stored;
        const char* appended;
        std::string text;
    } cases[] = {
        {{265, 0x12345, "cause 1"}, "", "cause 1"},
        {{265, 0x12345, "cause 1"}, nullptr, "cause 1"},
        {{265, 0x12345, "cause 1"}, "100%s", "cause 1: 100%s"},
        {{0, 7, "no error"}, "late", "no error: late"},
        {{514, 0x12345, full + "y"}, "lost", full},
        {{514, 0x12345, almostFull}, "cut", almostFull + ": c"},
    };
    for (const auto& [stored, appended, text] : cases) {
        const int result = stored.code != 0 ? 1 : 0;
        EXPECT_EQ(Quill_SetLastError(stored.code, stored.address, "%s", stored.text.c_str()),
                  result);
        EXPECT_EQ(Quill_AppendToLastError(appended), result);
        EXPECT_EQ(lastFailure(), (Failure{stored.code, stored.address, text}));
    }
    std::uint16_t low = 0;
    EXPECT_EQ(spifns_get_last_error(&low, nullptr), 514);
    EXPECT_EQ(low, 0x2345);
    spifns_clear_last_error();
    spifns_clear_last_error();
    EXPECT_EQ(lastFailure(), Failure());
    EXPECT_EQ(spifns_get_last_error(&low, nullptr), 0);
    EXPECT_EQ(low, 0);
}

}  // namespace
}  // namespace wrenlink::test
