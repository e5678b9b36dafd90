// The tool as scripts meet it: exit codes, what it prints, and the files that it reads and writes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include "tests/support/program.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

void makeFile(const char* name, const std::string& contents) {
    std::ofstream(name, std::ios::binary) << contents;
}

std::string contentsOf(const char* name, std::ios::openmode mode = std::ios::in) {
    std::ifstream file(name, mode);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string printed() { return contentsOf("../output"); }

void awaitPrinted(const char* text) {
    while (printed().find(text) == std::string::npos) std::this_thread::yield();
}

// Starts the tool, or the first host, with the words of a command line.
Program start(const std::string& line) {
    std::istringstream text(line);
    std::vector<std::string> words(std::istream_iterator<std::string>(text), {});
    words[0] = words[0] == "wren" ? WREN : FIRST_HOST;
    return Program(words, "../output", "../errors");
}

// What a program printed and then, behind its exit code unless that is 0, its errors.
std::string outcome(Program&& program) {
    const int code = program.wait();
    return printed() + (code != 0 ? '[' + std::to_string(code) + "] " : "") +
           contentsOf("../errors");
}

class WrenTest : public testing::Test {
   protected:
    // Files are in a folder of the test's own, in which programs start.
    WrenTest() {
        const fs::path folder = simulator_.runtime().path() / "files";
        fs::create_directory(folder);
        fs::current_path(folder);
        setEnvironment("WREN_PORT", "100");
        for (const char* variable : {"XDG_CONFIG_HOME", "APPDATA"})
            setEnvironment(variable, folder.parent_path().string());
        fs::create_directory(folder.parent_path() / "wrenlink");
    }
    ~WrenTest() override {
        setEnvironment("WREN_PORT", "");
        fs::current_path(fs::temp_directory_path());
    }

    struct Case {
        std::string line, outcome;
    };
    void expect(std::initializer_list<Case> cases) {
        for (const auto& [line, expected] : cases)
            EXPECT_EQ(line.starts_with("quillsim ") ? simulator_.control(line.substr(9))
                                                    : outcome(start(line)),
                      expected)
                << line;
    }
    // The folder holds an older file alone, and that as it was.
    static void expectOnlyOldFile() {
        EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 1);
        EXPECT_EQ(contentsOf("old"), "old");
    }

    Simulator simulator_{{100, 200}};
};

TEST_F(WrenTest, TellsScriptsHowItEnded) {
    const std::string unread = "[1] wren: adapter 100: error 517: Read failed on USB-SPI";
    const std::string power = "; check the chip's power and wiring, and try a lower --clock";
    const std::string look = std::string("; '") + kSteering + " \"log 0\"' shows the exchanges\n";
    const std::string choose = "; choose with --clock and --max-clock\n";
    std::string closed = textOf(NativeError::closed);
    closed.erase(closed.find_last_not_of("\r\n") + 1);  // the tool keeps an error in one line
    makeFile("apart.txt", "20: 1\n8000: 5\n9000: 6\n");
    makeFile("script", "set SPICLOCK=500 # slow\n\nwrite 0x20 1 2 3\nread 0x20 4\n");
    makeFile("script2", "read 0 1\nread 0x8001 9\n");
    makeFile("fast", "write 0 1\nset SPI_DELAY=3\n");
    makeFile("bad", "read 0 1\nwrite 0xffff 1 2\n");
    expect({
        {"first_host", "clock 1066.098081 kHz\nthe words came back\n"},
        {"wren --port 200 info",
         "adapter         quill200\nid              200\nport            1\nfirmware        1.8\n"
         "delay           4 steps\nclock           1066.1 kHz\nmax clock       1070 kHz\n"
         "mux device      0\nread bits       0x0\nwrite bits      0x0\nXAP             running\n"},
        {"wren set spi_delay=300 SPIMUL=2", "SPI_DELAY=300 steps\nSPIMUL=2\n"},
        {"wren get spi_delay --json",
         R"({"command":"get","exit":0,"result":{"id":100,"variables":{"SPI_DELAY":"300"}}})"
         "\n"},
        {"wren --port quill200 get SPI_DELAY", "SPI_DELAY=4 steps\n"},
        {"wren --max-clock 2000 --clock 1457.7 get SPI_DELAY", "SPI_DELAY=2 steps\n"},
        {"wren --clock 1000 get SPI_DELAY",
         "SPI_DELAY=4 steps\nwren: asked for a clock of 1000 kHz, got 1066.1 kHz\n"},
        {"wren --max-clock 3000 set SPICLOCK=2000",
         "[2] wren: adapter 100: error: SPICLOCK=2000 means 4000 kHz, above the maximum of 3000 "
         "kHz; the adapter has 1785.7 kHz and 4000 kHz, and 1785.7 kHz up to the maximum" +
             choose},
        {"wren --max-clock 1000 read 0 1",
         "[2] wren: adapter 100: error: SPI_DELAY=4 means 1066.1 kHz, above the maximum of 1000 "
         "kHz; the adapter has 1066.1 kHz and 1231.5 kHz, and 939.85 kHz up to the maximum" +
             choose},
        {"wren run fast",
         "[2] wren: adapter 100: error: SPI_DELAY=3 means 1231.5 kHz, above the maximum of 1070 "
         "kHz; the adapter has 1231.5 kHz and 1457.7 kHz, and 1066.1 kHz up to the maximum" +
             choose},
        {"wren write 0x10 7 0xabcd",
         "adapter 100: 2 words from 0x0010 on written and verified, CRC-32 83c334c6\n"},
        {"wren read 16 2",
         "# adapter 100: 2 words from 0x0010 on, CRC-32 83c334c6\n0010: 0007 abcd\n"},
        {"wren fill 0x12 3 1 0 0xffff",
         "adapter 100: 3 words from 0x0012 on filled and verified, CRC-32 c4b860f9\n"},
        {"wren fill 0x12 3 1 2",
         "adapter 100: 3 words from 0x0012 on filled and verified, CRC-32 c98c8bcc\n"},
        {"wren run script", "0020: 0001 0002 0003 0000\n"},
        {"wren mgcmd --init 0xff 1 2 3", "0x00fe 0x00fd\n"},
        {"wren verify 0x11 0xabcd 1 2 9",
         "0x0014: expected 0x0009, found 0x0001\n[4] wren: adapter 100: error: 1 of 4 words from "
         "0x0011 on differ\n"},
        {"quillsim faulty 0 0x8000 0x8000", ""},
        {"quillsim faulty 0 0x8002 0x8004", ""},
        {"wren verify -i apart.txt", unread + " at 0x8000" + power + look},
        {"wren read 0x8000 64", unread + " at 0x8000, 0x8002 to 0x8004" + power + look},
        {"wren run script2",
         unread + " at 0x8001 (what the sequence did before that stays done)" + power + look},
        {"wren read 0 65536 -o bad",
         unread + " at 0x8000, 0x8002 to 0x8004 (after reading at least 32256 of 65536 words)" +
             power + look},
        {"quillsim fault 0 badstatus 0x4101 code=0x4100", ""},
        {"wren mgcmd 1",
         "[1] wren: adapter 100: error 517: MGCMD failed on USB-SPI device; prepare the adapter "
         "with --init, or look with --any-answer" +
             look},
        {"wren run bad",
         "[1] wren: error: cannot use 'bad': line 2: 2 words from 0xffff on would reach beyond the "
         "last word, 0xffff\n"},
        {"wren help raed", "[2] wren: error: no command 'raed'; did you mean read?\n"},
        {"wren command fly", "[2] wren: error: no command 'fly'; there are DFU, SPISLOWER\n"},
        {"wren set SPIMUL=17", "[2] wren: error: SPIMUL takes a whole number, 0 to 16, not '17'\n"},
        {"wren ports --simulate 2",
         "[2] wren: error: '--simulate 2' may mean two things; write --simulate=2, or other "
         "numbers before it\n"},
        {"wren write 0 -1",
         "[2] wren: error: WORDS: '-1' is not a number from 0 to 65535 (decimal or 0x...); --help "
         "tells what there is\n"},
        {"wren --json",
         R"({"command":"","exit":2,"result":{},"error":{"code":0,"text":"no command",)"
         R"("progress":"","hint":"'wren --help' lists them"}})"
         "\n[2] wren: error: no command; 'wren --help' lists them\n"},
        {"wren xap --capture file",
         "[2] wren: error: --capture requires --simulate; --help tells what there is\n"},
        {"wren read 5", "[2] wren: error: COUNT is required; --help tells what there is\n"},
        {"wren read 0xffff 2",
         "[2] wren: error: 2 words from 0xffff on would reach beyond the last word, 0xffff\n"},
        {"wren --port 1x xap",
         "[3] wren: adapter 1x: error: no adapter '1x'; there are 0: USB SPI (100), 1: USB SPI "
         "(200)\n"},
        {"quillsim fault 0 close code=0x0400", ""},
        {"wren xap",
         "[5] wren: adapter 100: error 516: " + closed +
             ": Driver IO failed; check that the adapter is plugged in, then try again" + look},
        {"quillsim fault 0 corrupt 9 1 code=0x0100", ""},
        {"wren write 0x10 1 2",
         "0x0011: expected 0x0002, found 0x0003\n[4] wren: adapter 100: error: 1 of 2 words from "
         "0x0010 on differ" +
             power + '\n'},
        {"wren -v --port 0 xap",
         "running\nwren: selected quill100 at port 0\nwren: asking for the state of the XAP "
         "processor\n"},
    });
    EXPECT_THAT(outcome(start("wren verify --json 0x8003 1 2")),
                HasSubstr(R"("address":32771,"words":[{"address":32771,"count":2}]}})"));
}

TEST_F(WrenTest, WorksWithTheAdaptersThatAreMeant) {
    const std::string choices = "there are 0: USB SPI (100), 1: USB SPI (200)\n";
    expect({
        {"wren --port 1 write 5 1 2",
         "adapter 200: 2 words from 0x0005 on written and verified, CRC-32 abcedafb\n"},
        {"quillsim fault 0 corrupt 7 1 code=0x0100", ""},
        {"wren --port all write 5 3",
         "adapter 100: 0x0005: expected 0x0003, found 0x0002\n"
         "adapter 200: 1 word from 0x0005 on written and verified, CRC-32 6af4413c\n"
         "[4] wren: adapter 100: error: 1 of 1 word from 0x0005 on differ; check the chip's power "
         "and wiring, and try a lower --clock\n"},
        {"wren --json --port 9,200 xap",
         R"-({"command":"xap","exit":3,"adapters":[{"adapter":"9","exit":3,"result":{},"error":)-"
         R"-({"code":514,"text":"Couldn't find device with id (9)","progress":"","hint":")-" +
             choices.substr(0, choices.size() - 1) +
             R"-("}},{"adapter":"200","exit":0,"result":{"id":200,"xap":"running"}}]})-"
             "\n[3] wren: adapter 9: error 514: Couldn't find device with id (9); " +
             choices},
        {"wren --port all read 5 1 -o chip.bin",
         "[2] wren: error: several adapters would share 'chip.bin'; name a file with {id} in its "
         "name\n"},
        {"wren --port all read 5 1 -o {id}.bin",
         "adapter 100: 1 word from 0x0005 on read into 100.bin, CRC-32 6af4413c\n"
         "adapter 200: 1 word from 0x0005 on read into 200.bin, CRC-32 6af4413c\n"},
        {"wren --port 200,1 xap", "[2] wren: error: adapter 200 is named twice\n"},
        {"wren --port 200, xap", "[2] wren: error: an adapter without a name; leave out a comma\n"},
    });
    setEnvironment("WREN_PORT", "");
    expect({{"wren xap",
             "[2] wren: error: 2 adapters, and none is named; choose with --port, WREN_PORT or "
             "wren.toml; " +
                 choices}});
    makeFile("../wrenlink/wren.toml", "port = 100\nclock = \"513.87 kHz\"\n");
    makeFile("wren.toml", "port = 200 # this bench's\n");
    expect({{"wren get SPI_DELAY SPIPORT", "SPI_DELAY=12 steps\nSPIPORT=1\n"}});
    setEnvironment("WREN_PORT", "100");
    expect({{"wren --clock 1066.1 get SPI_DELAY SPIPORT", "SPI_DELAY=4 steps\nSPIPORT=0\n"}});
    makeFile("wren.toml", "clock = fast\n");
    expect({{"wren xap",
             "[2] wren: error: cannot use 'wren.toml': SPICLOCK takes a number from 0.1211 on, in "
             "kHz, not 'fast'\n"}});
    makeFile("wren.toml", "[bench]\nclock = 5\n");
    expect(
        {{"wren xap",
          "[2] wren: error: cannot use 'wren.toml': no setting 'bench'; there are port, clock\n"}});
    fs::remove("wren.toml");
    setEnvironment("WREN_PORT", "");
    fs::remove("../wrenlink/wren.toml");
    expect({{"quillsim unplug 0", ""}, {"wren xap", "running\n"}});
}

TEST_F(WrenTest, WritesOnlyWhatDiffers) {
    makeFile("apart.txt", "10: 1 9 3\n20: 4\n8000: 5\n");
    expect({
        {"wren write 0x10 1 2 3",
         "adapter 100: 3 words from 0x0010 on written and verified, CRC-32 fbbae94e\n"},
        {"wren write -i apart.txt --changed --dry-run",
         "0x0011: 1 word\n0x0020: 1 word\n0x8000: 1 word\n"
         "adapter 100: 3 words in 3 pieces from 0x0011 to 0x8000 would be written\n"},
        {"wren read 0x11 1", "# adapter 100: 1 word from 0x0011 on, CRC-32 73ef707d\n0011: 0002\n"},
    });
    simulator_.takeFrames();
    expect({{"wren write -i apart.txt --changed",
             "adapter 100: 3 words in 3 pieces from 0x0011 to 0x8000 written and verified, 2 of 5 "
             "(40 %) left as they were, CRC-32 678609df\n"}});
    EXPECT_THAT(simulator_.takeFrames(),
                testing::Contains(HasSubstr("02000011000100090000020000200001")).Times(1));
    expect({
        {"wren write -i apart.txt --changed",
         "adapter 100: nothing written, 5 of 5 (100 %) left as they were, CRC-32 678609df\n"},
    });
}

TEST_F(WrenTest, KeepsARecord) {
    expect(
        {{"wren --record line --port 9 xap",
          "[3] wren: adapter 9: error 514: Couldn't find device with id (9); there are 0: USB SPI "
          "(100), 1: USB SPI (200)\n"},
         {"quillsim fault 0 corrupt 7 1 code=0x0100", ""},
         {"wren --record line write 5 3",
          "0x0005: expected 0x0003, found 0x0002\n[4] wren: adapter 100: error: 1 of 1 word from "
          "0x0005 on differ; check the chip's power and wiring, and try a lower --clock\n"}});
    EXPECT_THAT(
        contentsOf("line"),
        MatchesRegex(R"-(\{"time":"20.+Z","version":"1.4","adapter":"9","firmware":null,)-"
                     R"-("command":"xap","exit":3,"error":"Couldn't .+","seconds":.+\}\s)-"
                     R"-(\{"time":"20.+Z","version":"1.4","adapter":"100",)-"
                     R"-("firmware":"1.8","command":"write","address":5,"count":1,"crc32":)-"
                     R"-("6af4413c","written":1,"verified":false,"differing":1,"exit":4,)-"
                     R"-("error":"1 of .+","seconds":.+\}\s)-"));
}

TEST_F(WrenTest, TakesTurnsWithOtherHosts) {
    std::signal(SIGINT, SIG_DFL);
    Program other = start("wren speed --seconds 60");
    while (simulator_.control("log 0").find("ops=read(") == std::string::npos)
        std::this_thread::yield();
    expect({
        {"wren --wait 0 write 0 1",
         "[5] wren: adapter 100: error: another host is at work; wait longer with --wait, or do "
         "not wait for it with --no-lock\n"},
        {"wren xap", "running\n"},
        {"wren --no-lock verify 0 1",
         "0x0000: expected 0x0001, found 0x0000\n[4] wren: adapter 100: error: another host may "
         "have been at work: 1 of 1 word from 0x0000 on differ; let others finish, and try "
         "again\n"},
    });
    simulator_.occupyKernelName("usbspi_mutex_1");
    EXPECT_THAT(outcome(start("wren --port 200 --wait 0 verify 0 0")),
                HasSubstr("WARNING: other hosts may come between at adapter 200: no lock '"));
    Program waiting({WREN, "fill", "0", "65536", "7"}, "../filled", "../waited");
    while (contentsOf("../waited").empty()) std::this_thread::yield();
    other.interrupt();
    EXPECT_EQ(other.wait(), 130);
    EXPECT_THAT(outcome(start("wren fill 0 65536 8")), HasSubstr("filled and verified"));
    EXPECT_EQ(waiting.wait(), 0);
    EXPECT_EQ(contentsOf("../waited"), "wren: waiting for another host at adapter 100\n");
}

TEST_F(WrenTest, MovesTheWholeMemoryThroughEachFormat) {
    std::string image(0x20000, '\0');
    std::generate(image.begin(), image.end(),
                  [random = std::minstd_rand()]() mutable { return static_cast<char>(random()); });
    image.replace(0, 2, "42");
    makeFile("image", image);
    makeFile("copy", "an older file");
    expect({
        {"wren write 0 -i image",
         "adapter 100: 65536 words from 0x0000 on written and verified, CRC-32 a63aaec7\n"},
        {"quillsim peek 0 0 1", "0x3234\n"},
        {"wren read 0 65536 -o copy",
         "adapter 100: 65536 words from 0x0000 on read into copy, CRC-32 a63aaec7\n"},
        {"quillsim poke 0 0x7fff 1", ""},
        {"wren read 0 65536 -o a.hex --endian big",
         "adapter 100: 65536 words from 0x0000 on read into a.hex, CRC-32 485e6f16\n"},
        {"quillsim poke 0 0x7fff 2", ""},
        {"wren verify -i a.hex --endian big",
         "0x7fff: expected 0x0001, found 0x0002\n[4] wren: adapter 100: error: 1 of 65536 words "
         "from 0x0000 on differ\n"},
        {"wren read 0 1 -o - --format raw", "42"},
        {"wren read 0 1 -o NUL",  // a device on Windows
         "adapter 100: 1 word from 0x0000 on read into NUL, CRC-32 3224b088\n"},
    });
    EXPECT_EQ(contentsOf("../output", std::ios::binary).find('\r'), std::string::npos);
    EXPECT_TRUE(contentsOf("copy", std::ios::binary) == image);
}

TEST_F(WrenTest, RefusesFilesBeforeAnythingIsSent) {
    makeFile("large", std::string(0x20002, ' '));
    makeFile("a.elf", "\177ELF and more");
    makeFile("a.img", "AB");
    makeFile("four", "four");
    makeFile("a.txt", "0: 1\n");
    expect({
        {"wren write 0 -i large",
         "[1] wren: error: cannot use 'large': 65537 words from 0x0000 on would reach beyond the "
         "last word, 0xffff\n"},
        {"wren write 0 -i a.elf",
         "[1] wren: error: cannot use 'a.elf': it is an ELF file; 'objcopy -O ihex FILE FILE.hex' "
         "makes Intel HEX of it\n"},
        {"wren write 0 -i a.img",
         "[2] wren: error: the name of 'a.img' does not tell its format; give --format raw, hex or "
         "text\n"},
        {"wren read 0 1 -o out.srec",
         "[2] wren: error: the name of 'out.srec' does not tell its format; give --format raw, hex "
         "or text\n"},
        {"wren write 0xffff -i four",
         "[1] wren: error: cannot use 'four': 2 words from 0xffff on would reach beyond the last "
         "word, 0xffff\n"},
        {"wren write 0 -i a.txt",
         "[2] wren: error: 'a.txt' is taken for a text file, which has addresses of its own; leave "
         "ADDR out, or tell its --format\n"},
        {"wren write -i four",
         "[2] wren: error: no address: give ADDR, or a file that holds addresses\n"},
        {"wren write 0 -i .", "[1] wren: error: cannot read '.': it is a folder\n"},
        {"wren write 0 -i missing",
         "[1] wren: error: cannot read 'missing': No such file or directory\n"},
    });
    EXPECT_THAT(simulator_.takeFrames(), testing::IsEmpty());
}

TEST_F(WrenTest, StopsBetweenTwoPiecesOnCtrlC) {
    // What started the tests in the background may have told them to ignore it; children inherit.
    std::signal(SIGINT, SIG_DFL);
    makeFile("old", "old");
    makeFile("../image", std::string(0x20000, '!'));
    simulator_.control("set 0 answer-us 10000");
    for (const auto& [line, operation, doing] :
         {std::tuple("wren --record ../line read 0 65536 -o old", "ops=read(", "reading"),
          {"wren --record ../line write 0 -i ../image", "ops=write(", "writing"}}) {
        Program program = start(line);
        while (simulator_.control("log 0").find(operation) == std::string::npos)
            std::this_thread::yield();
        program.interrupt();
        EXPECT_THAT(
            outcome(std::move(program)),
            MatchesRegex(std::string("\\[130\\] wren: adapter 100: error: interrupted \\(after ") +
                         doing + " .+ of 65536 words\\)\n"));
    }
    const std::string record = contentsOf("../line");
    EXPECT_THAT(record, HasSubstr(R"("read","address":0,"count":65536,"exit":130)"));
    EXPECT_THAT(record, HasSubstr(R"(,"verified":false,"exit":130)"));
    EXPECT_THAT(record, testing::Not(HasSubstr(R"("written":65536)")));
    EXPECT_EQ(simulator_.control("peek 0 0xffff 1"), "0x0000\n");
    expectOnlyOldFile();
}

TEST_F(WrenTest, ShowsWhatChangesUnderAWatch) {
    std::signal(SIGINT, SIG_DFL);
    Program program = start("wren dump 0 16 --watch 0.02");
    awaitPrinted("0008:");
    simulator_.control("poke 0 9 0x4142");
    awaitPrinted("4142");
    program.interrupt();
    EXPECT_THAT(
        outcome(std::move(program)),
        EndsWith("|\n0008:  0000 4142*0000 0000 0000 0000 0000 0000  |..BA............|\n"));

    Program ports = start("wren ports --await 2 --watch=0.02");
    awaitPrinted("200  ");
    simulator_.control("unplug 1");
    awaitPrinted("adapter 200 went\n");
    simulator_.control("plug 1");
    awaitPrinted("adapter 200 came\n");
    ports.interrupt();
    EXPECT_EQ(ports.wait(), 0);
    EXPECT_THAT(outcome(start("wren ports --await 3 --wait 0")),
                HasSubstr("[3] wren: error: 2 of 3 adapters answer"));
}

TEST_F(WrenTest, SimulatesAdaptersForOneCommand) {
    setEnvironment("TMPDIR", simulator_.runtime().path().string());  // for what is left behind
    Program killed = start("wren --simulate dump 0 16 --watch=9");
    awaitPrinted("0008:");
    killed.kill();
    expect({{"quillsim poke 0 0 7", ""},
            {"wren --simulate 2 --port 100 read 0 1",
             "# adapter 100: 1 word from 0x0000 on, CRC-32 41d912ff\n0000: 0000\n"},
            {"quillsim peek 0 0 1", "0x0007\n"},
            {"quillsim unplug 0", ""},
            {"quillsim unplug 1", ""},
            {"wren --simulate 2 --port 200 xap", "running\n"}});
    setEnvironment("TMPDIR", "");
    EXPECT_THAT(outcome(start("wren --json ports")), HasSubstr(R"("ports":[],"reason":)"));
}

}  // namespace
}  // namespace wrenlink::test
