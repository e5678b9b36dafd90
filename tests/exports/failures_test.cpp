// What fails, with which code and text, what the debug callback is told, and what is forgotten.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

#include "platform/named_mutex.h"
#include "platform/os.h"
#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using testing::ElementsAre;

using Texts = std::vector<std::string>;

// An operation that exchanges, and what its failure leaves.
struct Operation {
    const char* what;
    std::function<int(const Stream&)> run;
    int status;            // the result of a failure
    const char* appended;  // to the exchange's text
    Texts texts;           // for the debug callback; "*" stands for the whole error
};

// Runs nothing that has a status.
template <class Work>
std::function<int(const Stream&)> quietly(Work work) {
    return [work](const Stream& stream) {
        work(stream);
        return 0;
    };
}

Words word(1);

const Operation kOperations[] = {
    {"set delay",
     [](const Stream& s) { return s.set("SPI_DELAY", "9"); },
     1,
     ": Unable to set delays",
     {"Quill Set Delays 9"}},
    {"get delay",
     quietly([](const Stream& s) { EXPECT_EQ(s.get("SPI_DELAY"), "0"); }),
     0,
     ": Unable to get delays",
     {"Quill Get Delays command Failed"}},
    {"get clock",
     quietly([](const Stream& s) { EXPECT_EQ(s.get("SPICLOCK"), "4000.000000"); }),
     0,
     ": Unable to get delays",
     {"Quill Get Delays command Failed"}},
    {"device",
     [](const Stream& s) { return s.set("SPIMUL", "3"); },
     1,
     ": Unable to set multipled device",
     {"Quill mul dev 3"}},
    {"mode", [](const Stream& s) { return s.set("QUILLMODE", "SPI"); }, 1, "", {}},
    {"read",
     [](const Stream& s) { return s.read(1, word); },
     1,
     ": Unable to send sequence",
     {"USB-SPI device fail - *"}},
    {"MGCMD start",
     [](const Stream& s) { return spifns_stream_mgcmd_init(s.id(), 1, 2); },
     1,
     ": Unable to initialise MGCMDs",
     {}},
    {"MGCMD",
     [](const Stream& s) { return spifns_stream_mgcmd_cmd(s.id(), word.data(), 1, 1); },
     1,
     ": MGCMD cmd failed",
     {}},
    {"DFU",
     quietly([](const Stream& s) { s.command("DFU"); }),
     0,
     ": Unable to enable DFU mode",
     {}},
    {"slower",
     quietly([](const Stream& s) { s.command("SPISLOWER"); }),
     0,
     ": Unable to set delays: Unable to slow down SPI",
     {"Quill Get Delays command Failed", "Quill Set Delays 1"}},
    {"XAP",
     quietly([](const Stream& s) {
         EXPECT_EQ(spifns_stream_marigold_xap_stopped(s.id()), SPIFNS_XAP_ERROR);
     }),
     0,
     "",
     {}},
    {"select",
     quietly([](const Stream& s) {
         EXPECT_EQ(s.set("SPIPORT", "0"), 0);
         EXPECT_EQ(s.get("QUILLVERSION"), "0000");
     }),
     0,
     "",
     {}},
};

void expectFailures(const Stream& stream, int code, const std::string& cause) {
    DebugTexts texts(stream);
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.what);
        spifns_clear_last_error();
        word = {0x5A5A};
        EXPECT_EQ(operation.run(stream), operation.status);
        EXPECT_EQ(lastFailure(), (Failure{code, 0, cause + operation.appended}));
        EXPECT_EQ(word, Words{0x5A5A});
        Texts expected = operation.texts;
        for (std::string& text : expected)
            if (text.back() == '*') text.replace(text.size() - 1, 1, cause);
        EXPECT_EQ(texts.take(), expected);
    }
}

TEST(Failures, OfAnExchangeHaveTheirCodesAndTexts) {
    Simulator simulator({100}, "1.9");
    const struct {
        const char* arm;
        const char* disarm;
        int code;
        std::string cause;
    } faults[] = {
        {"unplug 0", "plug 0", 515, textOf(NativeError::noAdapter) + ": Unable to open USB driver"},
        {"openable 0 no", "openable 0 yes", 515,
         textOf(NativeError::notOpenable) + ": Unable to open USB driver"},
        {"fault 0 refuse 5 always", "clear 0", 516, textOf(5) + ": Driver IO failed"},
        {"fault 0 close always", "clear 0", 516,
         textOf(NativeError::closed) + ": Driver IO failed"},
        {"fault 0 empty always", "clear 0", 516,
         textOf(NativeError::cutOff) + ": Driver IO failed"},
        {"fault 0 runt 3 always", "clear 0", 516,
         textOf(NativeError::cutOff) + ": Driver IO failed"},
    };
    const Stream stream("0");
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.arm);
        simulator.control(fault.arm);
        expectFailures(stream, fault.code, fault.cause);
        simulator.control(fault.disarm);
        EXPECT_EQ(stream.set("SPIPORT", "0"), 0);
        EXPECT_EQ(stream.read(1, word), 0);
    }
}

TEST(Failures, SilenceEndsAfterASecond) {
    Simulator simulator;
    const Stream stream("0");
    const auto before = std::chrono::steady_clock::now();
    simulator.control("fault 0 silence");
    simulator.control("fault 0 delay 1200 skip=1");  // its answer comes too late
    Words words(2, 0xEEEE);
    const Failure timedOut = {
        516, 0,
        textOf(NativeError::stillPending) + ": Driver IO timed out: Unable to send sequence"};
    EXPECT_EQ(outcome(stream.read(0, words)), timedOut);
    EXPECT_EQ(outcome(stream.read(0, words)), timedOut);
    const auto spent = std::chrono::steady_clock::now() - before;
    EXPECT_GE(spent, std::chrono::milliseconds(1900));
    EXPECT_LE(spent, std::chrono::seconds(10));
    EXPECT_EQ(words, Words(2, 0xEEEE));
    EXPECT_EQ(stream.read(0, words), 0);
    EXPECT_EQ(words, Words(2, 0));
}

TEST(Failures, UnpluggingEndsARequestInFlight) {
    Simulator simulator;
    const Stream stream("0");
    simulator.takeFrames();
    simulator.control("fault 0 silence");
    std::thread unplugging([&] {
        while (simulator.control("log 0").empty()) std::this_thread::yield();
        simulator.control("unplug 0");
    });
    const Failure failure = outcome(stream.read(1, word));
    unplugging.join();
    EXPECT_EQ(failure, (Failure{516, 0,
                                textOf(NativeError::closed) +
                                    ": Driver IO failed: Unable to send sequence"}));
}

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

TEST(Failures, ShortRepliesLeaveWhatWasThere) {
    Simulator simulator;
    const Stream stream("0");
    stream.set("QUILLMODE", "SPI");
    simulator.control("fault 0 short 2");
    EXPECT_EQ(stream.get("SPI_DELAY"), "0");
    // The status of the reply is then the code of the request.
    simulator.control("xap 0 stopped");
    simulator.control("fault 0 short 4");
    EXPECT_EQ(spifns_stream_marigold_xap_stopped(stream.id()), SPIFNS_XAP_RUNNING);
    simulator.control("fault 0 long 3000");
    EXPECT_EQ(spifns_stream_marigold_xap_stopped(stream.id()), SPIFNS_XAP_STOPPED);
    EXPECT_EQ(lastFailure(), Failure());
    // Statuses that nobody looks at.
    simulator.control("fault 0 badstatus 0xdead 2");
    stream.set("SPIPORT", "0");
    stream.set("QUILLMODE", "SPI");
    EXPECT_EQ(stream.get("QUILLVERSION"), "0108");
    EXPECT_EQ(stream.get("SPI_DELAY"), "4");
}

TEST(Failures, WithNoAdapterSelected) {
    const Simulator simulator;
    const Stream stream;
    const Failure noDelays = {258, 0, "Cannot Set Delays with no device selected"};
    const struct {
        const char* operation;
        int status;
        Failure failure;
    } cases[] = {
        {"set delay", 1, noDelays},
        {"get delay", 0, noDelays},
        {"get clock", 0, noDelays},
        {"mode", 1, {260, 0, "Error allocating shared memory for delays"}},
        {"read", 1, {514, 0, "No Quill device found: Unable to send sequence"}},
        {"slower", 0, {258, 0, noDelays.text + ": Unable to slow down SPI"}},
        {"XAP", 0, {}},
        // These store no error of their own, so that their words stand alone.
        {"device", 0, {0, 0, ": Unable to set multipled device"}},
        {"MGCMD start", 0, {0, 0, ": Unable to initialise MGCMDs"}},
        {"MGCMD", 0, {0, 0, ": MGCMD cmd failed"}},
        {"DFU", 0, {0, 0, ": Unable to enable DFU mode"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.operation);
        const auto operation =
            std::find_if(std::begin(kOperations), std::end(kOperations),
                         [&](const Operation& o) { return o.what == std::string(c.operation); });
        ASSERT_NE(operation, std::end(kOperations));
        spifns_clear_last_error();
        EXPECT_EQ(operation->run(stream), c.status);
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
        {mutexKernelName(os::presentAdapters(1).at(0)), {}, {}},
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
