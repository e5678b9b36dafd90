// The tool as scripts meet it: exit codes, what it prints, and the files that it reads and writes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>
#include <tuple>

#include "tests/support/program.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;
using Words = std::vector<std::string>;

std::string contentsOf(const fs::path& path, std::ios::openmode mode = std::ios::binary) {
    std::ifstream file(path, mode);
    return {std::istreambuf_iterator<char>(file), {}};
}

class WrenTest : public testing::Test {
   protected:
    WrenTest() { fs::create_directory(folder_); }

    std::string file(const std::string& name, const std::string& contents) const {
        std::ofstream(folder_ / name, std::ios::binary) << contents;
        return (folder_ / name).string();
    }
    int run(Words words) const { return Program(std::move(words), output_, errors_).wait(); }
    int wren(Words words) const {
        words.insert(words.begin(), WREN);
        return run(std::move(words));
    }
    // What went to standard output and then, behind a mark, what went to standard error.
    std::string printed() const {
        const std::string errors = contentsOf(errors_, std::ios::in);
        return contentsOf(output_, std::ios::in) + (errors.empty() ? "" : "2> " + errors);
    }
    // The folder holds an older file alone, and that as it was.
    void expectOnlyOldFile() const {
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 1);
        EXPECT_EQ(contentsOf(folder_ / "old"), "old");
    }

    Simulator simulator_{{100, 200}};
    const fs::path folder_ = simulator_.runtime().path() / "files";
    const fs::path output_ = simulator_.runtime().path() / "output";
    const fs::path errors_ = simulator_.runtime().path() / "errors";
};

TEST_F(WrenTest, TellsScriptsHowItEnded) {
    const std::string error = "2> wren: error";
    const std::string ports = "; there are 0: USB SPI (100), 1: USB SPI (200)\n";
    const std::string plug = "; check that the adapter is plugged in, then try again\n";
    std::string closed = textOf(NativeError::closed);
    closed.erase(closed.find_last_not_of("\r\n") + 1);  // the tool keeps an error in one line
    const std::string script =
        file("script", "set SPICLOCK=500 # slow\n\nwrite 0x20 1 2 3\nread 0x20 4\n");
    const std::string bad = file("bad", "read 0 1\nwrite 0xffff 1 2\n");
    const struct {
        Words words;
        int exitCode;
        std::string printed;
        const char* fault = "clear 0";
    } cases[] = {
        {{"ports"},
         0,
         " 0  USB SPI (100)         id 100         firmware 1.8\n"
         " 1  USB SPI (200)         id 200         firmware 1.8\n"},
        {{"set", "spi_delay=300", "SPIMUL=2"}, 0, "SPI_DELAY=300\nSPIMUL=2\n"},
        {{"get", "spi_delay"}, 0, "SPI_DELAY=300\n"},
        {{"get", "spi_delay", "--json"},
         0,
         R"({"command":"get","exit":0,"result":{"variables":{"SPI_DELAY":"300"}}})"
         "\n"},
        {{"--port", "quill200", "get", "SPI_DELAY"}, 0, "SPI_DELAY=4\n"},
        {{"--max-clock", "2000", "--clock", "1500", "get", "SPI_DELAY"}, 0, "SPI_DELAY=2\n"},
        {{"write", "0x10", "7", "0xabcd"}, 0, "2 words from 0x0010 on written and verified\n"},
        {{"read", "16", "2"}, 0, "0010: 0007 abcd\n"},
        {{"dump", "--region", "16:2"},
         0,
         "0010:  0007 abcd                                |....|\n"},
        {{"fill", "--region", "0x12:3", "1", "2"},
         0,
         "3 words from 0x0012 on filled and verified\n"},
        {{"run", script}, 0, "0020: 0001 0002 0003 0000\n"},
        {{"mgcmd", "--init", "0xff", "1", "2", "3"}, 0, "0x00fe 0x00fd\n"},
        {{"verify", "0x11", "0xabcd", "1", "2", "9"},
         4,
         "0x0014: expected 0x0009, found 0x0001\n" + error + ": 1 of 4 words differ\n"},
        {{"read", "0x40", "64"},
         1,
         error + " 517: Read failed on USB-SPI; check the chip's power and wiring, and try a lower "
                 "--clock\n"},
        {{"mgcmd", "1"},
         1,
         error + " 517: MGCMD failed on USB-SPI device; prepare the adapter with --init, or look "
                 "with --any-answer\n",
         "fault 0 badstatus 0x4101 code=0x4100"},
        {{"run", bad},
         1,
         error + ": cannot use '" + bad +
             "': line 2: 2 words from 0xffff on would reach beyond the last word, 0xffff\n"},
        {{"fly", "--json"},
         2,
         R"({"command":"","exit":2,"result":{},"error":{"code":0,"text":"no command 'fly'",)"
         R"("progress":"","hint":"there are ports, info, xap, speed, read, dump, write, fill, )"
         R"(verify, diff, get, set, vars, command, mgcmd, run"}})"
         "\n" +
             error +
             ": no command 'fly'; there are ports, info, xap, speed, read, dump, write, fill, "
             "verify, diff, get, set, vars, command, mgcmd, run\n"},
        {{"set", "SPIMUL=17"}, 2, error + ": SPIMUL takes a whole number, 0 to 16, not '17'\n"},
        {{"write", "0", "-1"},
         2,
         error +
             ": WORDS: '-1' is not a number from 0 to 65535 (decimal or 0x...); --help tells what "
             "there is\n"},
        {{"read", "0", "1", "--region", "0:1"},
         2,
         error + ": give ADDR and COUNT, or --region, not both\n"},
        {{"--port", "999", "xap"}, 3, error + " 514: Couldn't find device with id (999)" + ports},
        {{"--port", "1x", "xap"}, 3, error + ": no adapter '1x'" + ports},
        {{"xap"},
         5,
         error + " 516: " + closed + ": Driver IO failed" + plug,
         "fault 0 close code=0x0400"},
        {{"write", "0x10", "1", "2"},
         4,
         "0x0011: expected 0x0002, found 0x0003\n" + error +
             ": 1 of 2 words differ; check the chip's power and wiring, and try a lower --clock\n",
         "fault 0 corrupt 9 1 code=0x0100"},
    };
    simulator_.control("faulty 0 0x50 0x50");
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::PrintToString(test.words));
        simulator_.control(test.fault);
        EXPECT_EQ(wren(test.words), test.exitCode);
        EXPECT_EQ(printed(), test.printed);
    }
}

TEST_F(WrenTest, MovesTheWholeMemoryThroughEachFormat) {
    std::string image(0x20000, '\x12');
    std::generate(image.begin() + 1, image.end(),
                  [random = std::minstd_rand()]() mutable { return static_cast<char>(random()); });
    image[1] = '\x34';
    const std::string copy = file("copy", "an older file");
    EXPECT_EQ(wren({"write", "0", "-i", file("image", image)}), 0);
    EXPECT_EQ(printed(), "65536 words from 0x0000 on written and verified\n");
    EXPECT_EQ(simulator_.control("peek 0 0 1"), "0x3412\n");
    EXPECT_EQ(wren({"read", "0", "65536", "-o", copy}), 0);
    EXPECT_TRUE(contentsOf(copy) == image);
    for (const std::string name : {"a.hex", "a.txt"}) {
        const std::string path = (folder_ / name).string();
        EXPECT_EQ(wren({"read", "--region", "all", "-o", path, "--endian", "big"}), 0);
        EXPECT_EQ(wren({"diff", path, "--endian", "big"}), 0);
        EXPECT_EQ(printed(), "65536 words from 0x0000 on are the same\n");
    }
    EXPECT_EQ(wren({"read", "0", "1", "-o", "-", "--format", "raw"}), 0);
    EXPECT_EQ(contentsOf(output_), "\x12\x34");
    simulator_.control("poke 0 0x7fff 0");
    EXPECT_EQ(wren({"diff", (folder_ / "a.txt").string()}), 4);
    EXPECT_THAT(printed(), MatchesRegex("0x7fff: expected 0x...., found 0x0000\n"
                                        "2> wren: error: 1 of 65536 words differ\n"));
}

TEST_F(WrenTest, RefusesFilesBeforeAnythingIsSent) {
    for (const auto& [words, exitCode, reason] :
         {std::tuple(Words{"0", "-i", file("odd", "odd")}, 1,
                     "has 3 bytes, and words have two each\n"),
          {{"0", "-i", file("empty", "")}, 1, "is empty\n"},
          {{"0", "-i", file("large", std::string(0x20002, ' '))},
           1,
           "more than the 131072 bytes that fit\n"},
          {{"0xffff", "-i", file("far", "four")},
           1,
           "2 words from 0xffff on do not fit into those from 0x0000 to 0xffff\n"},
          {{"--region", "0:1", "-i", file("far", "four")},
           1,
           "2 words from 0x0000 on do not fit into those from 0x0000 to 0x0000\n"},
          {{"-i", file("cut.hex", ":0400000001000200F9\n")},
           1,
           "it has no end record, so it may be cut off\n"},
          {{"0", "-i", file("a.txt", "0: 1\n")},
           2,
           "addresses of its own; leave ADDR out, or tell its --format\n"},
          {{"-i", file("far", "four")},
           2,
           "no address: give ADDR, or --region, or a file that holds addresses\n"},
          {{"0", "-i", folder_.string()}, 1, "it is a folder\n"},
          {{"0", "-i", "missing"}, 1, ": No such file or directory\n"}}) {
        Words line = words;
        line.insert(line.begin(), "write");
        EXPECT_EQ(wren(line), exitCode);
        EXPECT_THAT(printed(), testing::StartsWith("2> wren: error: "));
        EXPECT_THAT(printed(), testing::EndsWith(reason));
        EXPECT_EQ(simulator_.takeFrames(), Words());
    }
}

TEST_F(WrenTest, LeavesFilesAloneWhenReadingFails) {
    simulator_.control("fault 0 close code=0x0100 skip=40");
    EXPECT_EQ(wren({"read", "0", "65536", "-o", file("old", "old")}), 5);
    expectOnlyOldFile();
    EXPECT_THAT(printed(), HasSubstr("(after reading at least 20160 of 65536 words)"));
}

TEST_F(WrenTest, StopsBetweenTwoPiecesOnCtrlC) {
    // What started the tests in the background may have told them to ignore it; children inherit.
    std::signal(SIGINT, SIG_DFL);
    const std::string image = file("../image", std::string(0x20000, '!'));
    const std::string error = "2> wren: error: interrupted \\(after ";
    simulator_.control("set 0 answer-us 10000");
    for (const auto& [words, operation, doing] :
         {std::tuple(Words{WREN, "read", "0", "65536", "-o", file("old", "old")}, "read",
                     "reading"),
          {{WREN, "write", "0", "-i", image}, "write", "writing"}}) {
        Program program(words, output_, errors_);
        while (simulator_.control("log 0").find(std::string("ops=") + operation + "(") ==
               std::string::npos)
            std::this_thread::yield();
        program.interrupt();
        EXPECT_EQ(program.wait(), 130);
        EXPECT_THAT(printed(), MatchesRegex(error + doing + " .+ of 65536 words\\)\n"));
    }
    EXPECT_EQ(simulator_.control("peek 0 0xffff 1"), "0x0000\n");
    expectOnlyOldFile();
}

TEST_F(WrenTest, ShowsWhatChangesUnderAWatch) {
    std::signal(SIGINT, SIG_DFL);
    Program program({WREN, "dump", "0", "16", "--watch=0.02"}, output_, errors_);
    const auto await = [&](const std::string& text) {
        while (printed().find(text) == std::string::npos) std::this_thread::yield();
    };
    await("0008:");
    simulator_.control("poke 0 9 0x4142");
    await("4142");
    program.interrupt();
    EXPECT_EQ(program.wait(), 130);
    EXPECT_THAT(printed(),
                HasSubstr("|\n0008:  0000 4142*0000 0000 0000 0000 0000 0000  |..BA....."));
}

TEST(WrenSimulation, LastsAsLongAsTheCommand) {
    const TestRuntime runtime;
    const fs::path output = runtime.path() / "output";
    const fs::path errors = runtime.path() / "errors";
    EXPECT_EQ(Program({WREN, "--simulate", "xap"}, output, errors).wait(), 0);
    EXPECT_EQ(Program({WREN, "xap", "--capture", "file"}, output, errors).wait(), 2);
    EXPECT_EQ(Program({WREN, "--json", "ports"}, output, errors).wait(), 0);
    EXPECT_THAT(contentsOf(output), HasSubstr(R"("ports":[],"reason":)"));
}

TEST_F(WrenTest, AndTheFirstHostUseTheSameLibrary) {
    EXPECT_EQ(run({FIRST_HOST}), 0);
    EXPECT_EQ(printed(), "clock 1066.098081 kHz\nthe words came back\n");
}

}  // namespace
}  // namespace wrenlink::test
