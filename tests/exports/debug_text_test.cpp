// The debug text of streams, routine and full. SPIDEBUG_FULL is read when the library is loaded, so
// that each value of it takes a process of its own.
#include <gtest/gtest.h>

#include "tests/exports/host.h"
#include "tests/support/child_process.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using Texts = std::vector<std::string>;

std::string visible(std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;)
        text.replace(at, 1, "\\n");
    return text;
}

int debugged(const Arguments&) {
    const Stream stream;
    spifns_stream_set_debug_callback(
        stream.id(), [](const char* text, void*) { tellParent(visible(text)); }, nullptr);
    Words one(1);
    Words two(2);
    Words five = countingWords(5, 1);
    Words none;
    const std::string longValue(3000, 'v');
    stream.run({setting("SPIPORT", "0"), setting("SPICMDREADBITS", "0x40"), readInto(0x7C, two),
                writeFrom(0x10, five), readInto(0x2B, none), setting("SPI_DELAY", "414")});
    stream.read(0x7C, one);
    stream.get("SPI_DELAY");
    stream.get("SPICMDBITS");
    stream.get("nonesuch");
    spifns_stream_getvar(stream.id(), nullptr);
    stream.set("QUILLMODE", "SPI");
    stream.get("SPI_DELAY");
    stream.set("SPICLOCK", "1000");
    stream.command("DFU");
    spifns_stream_mgcmd_init(stream.id(), 0, 0);
    spifns_stream_mgcmd_cmd(stream.id(), two.data(), 1, 0);
    stream.run({setting("SPIPORT", "1"), readInto(0x7C, one), readInto(0x7C, one)});
    stream.get(longValue.c_str());
    tellParent("end");
    return 0;
}
const ChildRole kDebugged("debugged", debugged);

// Lines that begin with "!" are always shown.
const char* const kLines[] = {
    "Quill fw version: 265 (0x109)\\n",
    "Quill Major version: 1 - Minor version: 9",
    "Quill version might support cmdbits cache",
    "There is a cached cmdbits",
    "Prepend a new SpiAction to the sequence to set SPICMDREADBITS var",
    "Quill Major version: 1 - Minor version: 9",
    "Quill version might support cmdbits cache",
    "There is a cached cmdbits",
    "Quill Major version: 1 - Minor version: 9",
    "Quill version might support cmdbits cache",
    "There is a cached cmdbits",
    "[IN ] Quill Batch Operation",
    "Retrieving information for quill command SpiAction::SpiActionType = 2",
    "Quill Set Read CmdBts - 0x40",
    "Retrieving information for quill command SpiAction::SpiActionType = 0",
    "Quill Read [007c 7d] = 0012 00ab ",
    "Retrieving information for quill command SpiAction::SpiActionType = 2",
    "Quill Set Write CmdBts - 0x0",
    "Retrieving information for quill command SpiAction::SpiActionType = 1",
    "Quill Write [0010 14] = 0001 0002 0003  ...",
    "[OUT] Quill Batch Operation",
    "!WARNING: instructed to set Quill clock too slow. honouring.",
    "!Quill Set Delays 414",
    "Submitting a sequence of 0 commands",
    "Quill Major version: 1 - Minor version: 9",
    "Quill version might support cmdbits cache",
    "There is a cached cmdbits",
    "Submitting a sequence of 1 commands",
    "Retrieving information for quill command SpiAction::SpiActionType = 0",
    "Quill Read [007c] = 0012 ",
    "var = SPI_DELAY",
    "Quill Get Delays = 414 (cached)",
    "pszResult = 414",
    "var = SPICMDBITS",
    "pszResult = MISMATCH",
    "var = nonesuch",
    "pszResult = ",
    "var = (null)",
    "Submitting a sequence of 0 commands",
    "var = SPI_DELAY",
    "Quill Get Delays = 414",
    "pszResult = 414",
    "var = SPIMAXCLOCK",
    "pszResult = 1070",
    "!Quill Set Delays 4",
    "Submitting a sequence of 0 commands",
    "Quill DFU",
    "Quill MGCMD init",
    "Quill MGCMD cmd",
    "Quill fw version: 264 (0x108)\\n",
    "Quill Major version: 1 - Minor version: 8",
    "Quill version does not support cmdbits cache",
    "Quill Major version: 1 - Minor version: 8",
    "Quill version does not support cmdbits cache",
    "Submitting a sequence of 2 commands",
    "[IN ] Quill Batch Operation",
    "Retrieving information for quill command SpiAction::SpiActionType = 0",
    "data->cmd not recognized: 16962",
    "[OUT] Quill Batch Operation",
};

Texts textsWith(const std::string& value) {
    setEnvironment("SPIDEBUG_FULL", value);
    ChildProcess child("debugged");
    setEnvironment("SPIDEBUG_FULL", "");
    Texts texts;
    for (std::string line = child.readLine(); !line.empty(); line = child.readLine())
        texts.push_back(line);
    if (texts.empty() || texts.back() != "end") return {"the child ended too early"};
    texts.pop_back();
    return texts;
}

TEST(DebugText, IsFullWhenTheEnvironmentSaysSo) {
    Simulator simulator({100, 200}, "1.9");
    simulator.control("set 1 firmware 1.8");
    simulator.control("fault 1 badstatus 0x4242 always code=0x0100");
    simulator.control("poke 0 0x7c 0x12 0xab");
    Texts full;
    Texts routine;
    for (const std::string line : kLines) {
        const bool always = line[0] == '!';
        full.push_back(always ? line.substr(1) : line);
        if (always) routine.push_back(full.back());
    }
    const struct {
        const char* value;
        bool isFull;
    } cases[] = {{"ON", true}, {"tRuE", true}, {"", false},
                 {"1", false}, {"yes", false}, {"ON ", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        Texts texts = textsWith(c.value);
        if (c.isFull) {
            // A text that is too long is cut.
            ASSERT_GE(texts.size(), 2U);
            EXPECT_EQ(texts[texts.size() - 2], ("var = " + std::string(3000, 'v')).substr(0, 1151));
            EXPECT_EQ(texts.back(), "pszResult = ");
            texts.resize(texts.size() - 2);
        }
        EXPECT_EQ(texts, c.isFull ? full : routine);
    }
}

}  // namespace
}  // namespace wrenlink::test
