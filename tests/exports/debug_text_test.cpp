// The debug text of streams, routine and full. SPIDEBUG_FULL is read when the library is loaded, so
// that each value of it takes a process of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/exports/host.h"
#include "tests/support/child_process.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

void tell(std::string text) {
    std::replace(text.begin(), text.end(), '\n', '/');
    tellParent(text);
}

int debugged(const Arguments&) {
    const Stream stream;
    spifns_stream_set_debug_callback(
        stream.id(), [](const char* text, void*) { tell(text); }, nullptr);
    for (const char* request : {"SPIPORT=0 SPICMDREADBITS=0x40 r7c:2 w10:5 r2b:0 SPI_DELAY=414",
                                "r7c:1", "?SPI_DELAY", "?SPICMDBITS", "?nonesuch"})
        stream.ask(request);
    spifns_stream_getvar(stream.id(), nullptr);
    for (const char* request : {"QUILLMODE=SPI", "?SPI_DELAY", "SPICLOCK=1000", "!DFU",
                                "MGCMD start", "MGCMD", "SPIPORT=1 r7c:1 r7c:1"})
        stream.ask(request);
    stream.get(std::string(3000, 'v').c_str());
    tell("end");
    return 0;
}
const ChildRole kDebugged("debugged", debugged);

std::string textsWith(const std::string& value) {
    setEnvironment("SPIDEBUG_FULL", value);
    ChildProcess child("debugged");
    setEnvironment("SPIDEBUG_FULL", "");
    std::string texts;
    for (std::string line = child.readLine(); line != "end"; line = child.readLine()) {
        if (line.empty()) return "the child ended too early";
        texts += line + '\n';
    }
    return texts;
}

const std::string kCached =
    "Quill Major version: 1 - Minor version: 9|Quill version might support cmdbits cache|"
    "There is a cached cmdbits|";
const std::string kNotCached =
    "Quill Major version: 1 - Minor version: 8|Quill version does not support cmdbits cache|";
const std::string kAction = "Retrieving information for quill command SpiAction::SpiActionType = ";

// With "|" behind each; those that begin with "!" are always shown, and one too long is cut.
const std::string kTexts =
    "Quill fw version: 265 (0x109)/|" + kCached +
    "Prepend a new SpiAction to the sequence to set SPICMDREADBITS var|" + kCached + kCached +
    "[IN ] Quill Batch Operation|" + kAction + "2|Quill Set Read CmdBts - 0x40|" + kAction +
    "0|Quill Read [007c 7d] = 0012 00ab |" + kAction + "2|Quill Set Write CmdBts - 0x0|" + kAction +
    "1|Quill Write [0010 14] = 1010 1011 1012  ...|[OUT] Quill Batch Operation|"
    "!WARNING: instructed to set Quill clock too slow. honouring.|!Quill Set Delays 414|"
    "Submitting a sequence of 0 commands|" +
    kCached + "Submitting a sequence of 1 commands|" + kAction +
    "0|Quill Read [007c] = 0012 |"
    "var = SPI_DELAY|Quill Get Delays = 414 (cached)|pszResult = 414|"
    "var = SPICMDBITS|pszResult = MISMATCH|var = nonesuch|pszResult = |var = (null)|"
    "Submitting a sequence of 0 commands|"
    "var = SPI_DELAY|Quill Get Delays = 414|pszResult = 414|"
    "var = SPIMAXCLOCK|pszResult = 1070|!Quill Set Delays 4|Submitting a sequence of 0 commands|"
    "Quill DFU|Quill MGCMD init|Quill MGCMD cmd|Quill fw version: 264 (0x108)/|" +
    kNotCached + kNotCached + "Submitting a sequence of 2 commands|[IN ] Quill Batch Operation|" +
    kAction + "0|data->cmd not recognized: 16962|[OUT] Quill Batch Operation|var = " +
    std::string(1145, 'v') + "|pszResult = |";

TEST(DebugText, IsFullWhenTheEnvironmentSaysSo) {
    Simulator simulator({100, 200}, "1.9");
    simulator.control("set 1 firmware 1.8");
    simulator.control("fault 1 badstatus 0x4242 always code=0x0100");
    simulator.control("poke 0 0x7c 0x12 0xab");
    std::string full;
    std::string routine;
    std::istringstream texts(kTexts);
    for (std::string text; std::getline(texts, text, '|');) {
        const bool always = text[0] == '!';
        full += text.substr(always ? 1 : 0) + '\n';
        if (always) routine += text.substr(1) + '\n';
    }
    for (const char* value : {"ON", "tRuE"}) EXPECT_EQ(textsWith(value), full) << value;
    for (const char* value : {"", "1", "yes", "ON "}) EXPECT_EQ(textsWith(value), routine) << value;
}

TEST(DebugText, LetsWhatItsReaderThrowsThrough) {
    const Simulator simulator;
    const Stream stream("0");
    const auto callback = [](const char*, void*) { throw std::bad_alloc(); };
    spifns_stream_set_debug_callback(stream.id(), callback, nullptr);
    EXPECT_THROW(stream.set("SPIMUL", "1"), std::bad_alloc);
    EXPECT_EQ(lastFailure(), Failure());
    spifns_stream_set_debug_callback(stream.id(), nullptr, nullptr);
    EXPECT_EQ(stream.set("SPIMUL", "1"), 0);
}

}  // namespace
}  // namespace wrenlink::test
