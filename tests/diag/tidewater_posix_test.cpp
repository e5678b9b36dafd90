// The log that tidewater writes. Its switch is read when the module that carries it is loaded, so
// each case loads the module in a child process of its own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/loaded_module.h"
#include "tests/support/test_runtime.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::SizeIs;

class Probe : public wrenlink::test::LoadedModule {
   public:
    Probe() : LoadedModule(TRACE_PROBE) {}

    int traced() { return find<int()>("probeTraced")(); }
    void text(const char* text) { find<void(const char*)>("probeText")(text); }
    bool activated() { return find<bool()>("probeActivated")(); }
};

struct Line {
    std::string second;
    long process;
    long thread;
    std::string text;  // with the function
};

// The lines of a log; one that is not well formed is a failure.
std::vector<Line> linesOf(const fs::path& file) {
    static const std::regex form(R"((\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\.\d{6}Z (\d+) (\d+) (\w+) )"
                                 R"(\S*tests/diag/trace_probe\.cpp:[1-9]\d* (.*))");
    std::vector<Line> lines;
    std::ifstream in(file);
    for (std::string text; std::getline(in, text);) {
        std::smatch part;
        if (std::regex_match(text, part, form))
            lines.push_back({part[1], std::stol(part[2]), std::stol(part[3]),
                             part[4].str() + ": " + part[5].str()});
        else
            ADD_FAILURE() << "not a line: " << text;
    }
    return lines;
}

std::string secondsNow() {
    // Not time(), whose clock may be a tick late.
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", std::gmtime(&now));
    return text;
}

class Tidewater : public testing::Test {
   protected:
    // Starts a child with this log, its standard error going to a file, whose exit code is work's.
    pid_t start(const char* target, const std::function<int()>& work) {
        const pid_t child = fork();
        if (child != 0) return child;
        dup2(open(errors_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
        target == nullptr ? unsetenv("TIDEWATER_LOG") : setenv("TIDEWATER_LOG", target, 1);
        _exit(work());
    }
    static int finish(pid_t child) {
        int status = -1;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    int run(const char* target, const std::function<int()>& work) {
        return finish(start(target, work));
    }

    const wrenlink::test::TestRuntime folder_;
    const fs::path log_ = folder_.path() / "trace.log";
    const fs::path errors_ = folder_.path() / "stderr";
};

int traceEverything() {
    Probe probe;
    probe.text(nullptr);
    return probe.activated() ? probe.traced() : 0;
}

TEST_F(Tidewater, AppendsEveryKindOfLineWithAllFields) {
    const std::string before = secondsNow();
    ASSERT_EQ(run(log_.c_str(), traceEverything), 7);
    const pid_t child = start(log_.c_str(), traceEverything);
    ASSERT_EQ(finish(child), 7);
    const std::string after = secondsNow();
    EXPECT_EQ(fs::file_size(errors_), 0U);
    ASSERT_EQ(run("stderr", traceEverything), 7);
    EXPECT_THAT(linesOf(errors_), SizeIs(12));

    std::vector<Line> lines = linesOf(log_);
    ASSERT_THAT(lines, SizeIs(24));
    lines.erase(lines.begin(), lines.begin() + 12);
    std::vector<std::string> texts;
    for (const Line& line : lines) {
        EXPECT_LE(before, line.second);
        EXPECT_GE(after, line.second);
        EXPECT_EQ(line.process, child);
        EXPECT_EQ(line.thread, child);
        texts.push_back(line.text);
    }
    EXPECT_THAT(
        texts,
        ElementsAre("probeText: -> probeText", "probeText: (null)", "probeText: <- probeText",
                    "probeTraced: -> probeTraced", "probeTraced: profile mark 5",
                    "probeTraced: half way", "probeTraced: error -3: out of paper",
                    "probeTraced: profile mark 0", "probeTraced: <- probeTraced [returning 7]",
                    "farewell: -> farewell", "farewell: the module goes", "farewell: <- farewell"));
}

TEST_F(Tidewater, IsSilentWithoutAFileToWrite) {
    const std::string missing = folder_.path() / "missing" / "trace.log";
    for (const char* target :
         {static_cast<const char*>(nullptr), "", folder_.path().c_str(), missing.c_str()}) {
        SCOPED_TRACE(target == nullptr ? "not set" : target);
        EXPECT_EQ(run(target, traceEverything), 0);
        EXPECT_EQ(fs::file_size(errors_), 0U);
    }
    EXPECT_FALSE(fs::exists(missing));
}

TEST_F(Tidewater, LeavesTheNativeErrorAlone) {
    const auto keepsIt = [] {
        Probe probe;
        errno = EXDEV;
        probe.traced();
        probe.text("text");
        probe.activated();
        return errno == EXDEV ? 0 : 1;
    };
    for (const char* target : {"", log_.c_str(), "/dev/full"})
        EXPECT_EQ(run(target, keepsIt), 0) << target;
}

TEST_F(Tidewater, KeepsATextOnOneLine) {
    const auto write = [] {
        Probe probe;
        probe.text("two\r\nlines\tand a tab\x7f");
        probe.text(std::string(100000, 'x').c_str());
        return 0;
    };
    ASSERT_EQ(run(log_.c_str(), write), 0);
    const auto lines = linesOf(log_);
    ASSERT_THAT(lines, SizeIs(9));
    EXPECT_EQ(lines[1].text, "probeText: two  lines and a tab ");
    EXPECT_THAT(lines[4].text, testing::MatchesRegex("probeText: x+"));
    EXPECT_GT(lines[4].text.size(), 3000U);
}

TEST_F(Tidewater, LinesOfThreadsAndProcessesDoNotMix) {
    constexpr int kProcesses = 3;
    constexpr int kThreads = 4;
    constexpr int kCalls = 50;
    const std::string text(1000, 'x');
    const auto work = [&text] {
        Probe probe;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < kCalls; ++i) probe.text(text.c_str());
            });
        }
        for (std::thread& thread : threads) thread.join();
        return 0;
    };
    std::array<pid_t, kProcesses> children{};
    for (pid_t& child : children) child = start(log_.c_str(), work);
    for (const pid_t child : children) EXPECT_EQ(finish(child), 0);

    std::map<std::pair<long, long>, int> texts;  // of each thread
    for (const Line& line : linesOf(log_))
        if (line.text == "probeText: " + text) ++texts[{line.process, line.thread}];
    EXPECT_THAT(texts, SizeIs(kProcesses * kThreads));
    for (const auto& [thread, count] : texts) EXPECT_EQ(count, kCalls);
}

TEST_F(Tidewater, IsUnloadedWithItsModuleAndClosesItsFile) {
    const auto reload = [] {
        const auto openFiles = [] { return wrenlink::test::takeStock().handles; };
        const auto before = openFiles();
        for (int i = 0; i < 100; ++i) {
            if (Probe().traced() != 7) return 1;
            if (wrenlink::test::isLoaded(TRACE_PROBE)) return 2;
        }
        return openFiles() == before ? 0 : 3;
    };
    EXPECT_EQ(run(log_.c_str(), reload), 0);
    EXPECT_THAT(linesOf(log_), SizeIs(100 * 9));
}

}  // namespace
