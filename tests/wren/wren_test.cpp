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
    std::string closed = textOf(NativeError::closed);
    closed.erase(closed.find_last_not_of("\r\n") + 1);  // the tool keeps an error in one line
    simulator_.control("faulty 0 0x20 0x20");
    const struct {
        Words words;
        int exitCode;
        std::string printed;
        const char* fault = "clear 0";
    } cases[] = {
        {{"ports"}, 0, " 0  USB SPI (100)\n 1  USB SPI (200)\n"},
        {{"set", "spi_delay=300", "SPIMUL=2"}, 0, "SPI_DELAY=300\nSPIMUL=2\n"},
        {{"get", "spi_delay"}, 0, "SPI_DELAY=300\n"},
        {{"--port", "200", "get", "SPI_DELAY"}, 0, "SPI_DELAY=4\n"},
        {{"write", "0x10", "7", "0xabcd"}, 0, "2 words from 0x0010 on written and verified\n"},
        {{"read", "16", "2"}, 0, "0x0007 0xabcd\n"},
        {{"read", "0x10", "64"}, 1, error + " 517: Read failed on USB-SPI\n"},
        {{"fly"}, 2, error + ": The following argument was not expected: fly\n"},
        {{"set", "SPIMUL=17"}, 2, error + ": SPIMUL takes a whole number, 0 to 16, not '17'\n"},
        {{"--port", "999", "xap"}, 3, error + " 514: Couldn't find device with id (999)\n"},
        {{"xap"},
         5,
         error + " 516: " + closed + ": Driver IO failed\n",
         "fault 0 close code=0x0400"},
        {{"write", "0x10", "1", "2"},
         4,
         "2> 0x0011: wrote 0x0002, read 0x0003\n"
         "wren: error: 1 of 2 words differ from what was written\n",
         "fault 0 corrupt 9 1 code=0x0100"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::PrintToString(test.words));
        simulator_.control(test.fault);
        EXPECT_EQ(wren(test.words), test.exitCode);
        EXPECT_EQ(printed(), test.printed);
    }
}

TEST_F(WrenTest, WritesVerifiesAndReadsTheWholeMemory) {
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
}

TEST_F(WrenTest, RefusesFilesBeforeAnythingIsSent) {
    for (const auto& [address, name, reason] :
         {std::tuple("0", file("odd", "odd"), "has 3 bytes, and words have two each\n"),
          {"0", file("empty", ""), "is empty\n"},
          {"0", file("large", std::string(0x20002, ' ')), "more than the 65536 words that fit\n"},
          {"0xffff", file("far", "four"), "more than the 1 words that fit\n"},
          {"0", "missing", ": No such file or directory\n"}}) {
        EXPECT_EQ(wren({"write", address, "-i", name}), 1);
        EXPECT_THAT(printed(), testing::StartsWith("2> wren: error: cannot "));
        EXPECT_THAT(printed(), testing::EndsWith(reason));
        EXPECT_EQ(simulator_.takeFrames(), Words());
    }
}

TEST_F(WrenTest, LeavesFilesAloneWhenReadingFails) {
    simulator_.control("fault 0 close code=0x0100 skip=40");
    EXPECT_EQ(wren({"read", "0", "65536", "-o", file("old", "old")}), 5);
    expectOnlyOldFile();
}

TEST_F(WrenTest, StopsBetweenTwoPiecesOnCtrlC) {
    // What started the tests in the background may have told them to ignore it; children inherit.
    std::signal(SIGINT, SIG_DFL);
    const std::string image = file("../image", std::string(0x20000, '!'));
    const std::string error = "2> wren: error: interrupted after ";
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
        EXPECT_THAT(printed(), MatchesRegex(error + doing + " .+ of 65536 words\n"));
    }
    EXPECT_EQ(simulator_.control("peek 0 0xffff 1"), "0x0000\n");
    expectOnlyOldFile();
}

TEST_F(WrenTest, AndTheFirstHostUseTheSameLibrary) {
    EXPECT_EQ(run({FIRST_HOST}), 0);
    EXPECT_EQ(printed(), "clock 1066.098081 kHz\nthe words came back\n");
}

}  // namespace
}  // namespace wrenlink::test
