// What is forgotten after a failure, and what fails without an adapter or its caches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "platform/named_mutex.h"
#include "platform/os.h"
#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using testing::ElementsAre;

Words word(1);

TEST(Failures, MakeEveryStreamForgetWhatTheAdapterHas) {
    Simulator simulator({100, 200}, "1.9");
    const Stream failing("0");
    const Stream other("100");
    const Stream elsewhere("200");
    for (const Stream* stream : {&other, &elsewhere}) {
        stream->set("SPI_DELAY", "9");
        stream->run({readInto(1, word), writeFrom(1, word)});
    }
    // Both forms of a command: a single one, and a batch.
    for (const char* name : {"SPIMUL", "read"}) {
        SCOPED_TRACE(name);
        simulator.control("fault 0 refuse 5");
        EXPECT_EQ(*name == 'r' ? failing.read(1, word) : failing.set(name, "1"), 1);
        for (const Stream* stream : {&other, &elsewhere}) {
            const bool forgot = stream == &other;
            simulator.takeFrames(forgot ? 0 : 1);
            EXPECT_EQ(stream->get("SPI_DELAY"), "9");
            stream->run({readInto(1, word), writeFrom(1, word)});
            Batch batch;
            if (forgot) batch.bits(0, 0);
            batch.read(1, 1);
            if (forgot) batch.bits(1, 0);
            batch.write(1, word);
            EXPECT_EQ(simulator.takeFrames(forgot ? 0 : 1),
                      forgot ? (Frames{hex("0300 0400 00 0500"), batch}) : Frames{batch});
        }
    }
}

TEST(Failures, WhileTheAdapterIsOutOfReach) {
    Simulator simulator;
    const Stream stream("0");
    const struct {
        const char* begin;
        const char* end;
        NativeError error;
    } cases[] = {{"unplug 0", "plug 0", NativeError::noAdapter},
                 {"openable 0 no", "openable 0 yes", NativeError::notOpenable}};
    for (const auto& c : cases) {
        simulator.control(c.begin);
        EXPECT_EQ(
            outcome(stream.read(1, word)),
            (Failure{515, 0,
                     textOf(c.error) + ": Unable to open USB driver: Unable to send sequence"}));
        simulator.control(c.end);
        EXPECT_EQ(stream.read(1, word), 0);
    }
}

TEST(Failures, WithNoAdapterSelected) {
    const Simulator simulator;
    const Stream stream;
    const Failure noDelays = {258, 0, "Cannot Set Delays with no device selected"};
    const auto set = [&](const char* name, const char* value) {
        return [&stream, name, value] { return stream.set(name, value); };
    };
    const auto get = [&](const char* name, const char* value) {
        return [&stream, name, value] { return stream.get(name) == value ? 0 : -1; };
    };
    const auto command = [&](const char* name) {
        return [&stream, name] { return stream.command(name) == nullptr ? 0 : -1; };
    };
    const struct {
        const char* what;
        std::function<int()> call;
        int status;
        Failure failure;
    } cases[] = {
        {"set delay", set("SPI_DELAY", "9"), 1, noDelays},
        {"get delay", get("SPI_DELAY", "0"), 0, noDelays},
        {"get clock", get("SPICLOCK", "4000.000000"), 0, noDelays},
        {"mode", set("QUILLMODE", "SPI"), 1, {260, 0, "Error allocating shared memory for delays"}},
        {"read",
         [&] { return stream.read(1, word); },
         1,
         {514, 0, "No Quill device found: Unable to send sequence"}},
        {"slower", command("SPISLOWER"), 0, {258, 0, noDelays.text + ": Unable to slow down SPI"}},
        {"XAP",
         [&] { return spifns_stream_marigold_xap_stopped(stream.id()); },
         SPIFNS_XAP_ERROR,
         {}},
        // These store no error of their own, so that their words stand alone.
        {"device", set("SPIMUL", "3"), 0, {0, 0, ": Unable to set multipled device"}},
        {"MGCMD start",
         [&] { return spifns_stream_mgcmd_init(stream.id(), 1, 2); },
         0,
         {0, 0, ": Unable to initialise MGCMDs"}},
        {"MGCMD",
         [&] { return spifns_stream_mgcmd_cmd(stream.id(), word.data(), 1, 1); },
         0,
         {0, 0, ": MGCMD cmd failed"}},
        {"DFU", command("DFU"), 0, {0, 0, ": Unable to enable DFU mode"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        spifns_clear_last_error();
        EXPECT_EQ(c.call(), c.status);
        EXPECT_EQ(lastFailure(), c.failure);
    }
    EXPECT_EQ(stream.get("SPIMUL"), "3");
    spifns_stream_get_device_id(stream.id(), nullptr, 0);
    EXPECT_EQ(
        outcome(stream.set("SPIMUL", "4")),
        (Failure{1, 0,
                 "Device ID unavailable when port not open: Unable to set multipled device"}));
}

const Failure kNoDelays = {260, 0, "Error allocating shared memory for delays"};
const Failure kNoCmdBits = {260, 0, "Error allocating shared memory for cmdbits"};

TEST(Failures, WithoutSharedCaches) {
    Simulator simulator({100}, "1.9");
    const Stream stream;
    simulator.offerKernelObjects(false);
    EXPECT_EQ(stream.set("SPIPORT", "0"), 0);
    EXPECT_EQ(outcome(stream.set("SPI_DELAY", "9")), kNoDelays);
    EXPECT_EQ(outcome(stream.set("SPICLOCK", "500")), kNoDelays);
    EXPECT_EQ(outcome(stream.set("QUILLMODE", "SPI")), kNoDelays);
    spifns_clear_last_error();
    EXPECT_EQ(stream.get("SPI_DELAY"), "0");
    EXPECT_EQ(lastFailure(), kNoDelays);
    // Nobody can tell which bits the adapter has, so that they always travel.
    simulator.takeFrames();
    EXPECT_EQ(stream.run({readInto(1, word), readInto(2, word)}), 0);
    EXPECT_THAT(simulator.takeFrames(),
                ElementsAre(Batch().bits(0, 0).read(1, 1).bits(0, 0).read(2, 1)));

    // Once the caches can be had they are used, and know nothing.
    simulator.offerKernelObjects(true);
    EXPECT_EQ(stream.get("SPI_DELAY"), "4");
    EXPECT_THAT(simulator.takeFrames(), ElementsAre(hex("0300 0400 00 0500")));
}

// A region that cannot be had is missed; a mutex that cannot be had is done without.
TEST(Failures, WhenNamesAreTakenByOtherKinds) {
    Simulator simulator({100}, "1.9");
    const struct {
        std::string taken;
        Failure delay;
        Failure mode;
    } cases[] = {
        {"kvs_shm_quilldelays100", kNoDelays, kNoDelays},
        {"kvs_shm_quillcmdbits100", {}, kNoCmdBits},
        {"kvs_mutex_quilldelays100", {}, {}},
        {"kvs_mutex_quillcmdbits100", {}, {}},
        {std::string(mutexKernelName(os::presentAdapters(1).at(0))), {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.taken);
        simulator.offerKernelObjects(false);
        simulator.offerKernelObjects(true);
        simulator.occupyKernelName(c.taken);
        const Stream stream("0");
        EXPECT_EQ(outcome(stream.set("SPI_DELAY", "9")), c.delay);
        EXPECT_EQ(outcome(stream.set("QUILLMODE", "JTAG")), c.mode);
        EXPECT_EQ(stream.read(1, word), 0);
    }
}

}  // namespace
}  // namespace wrenlink::test
