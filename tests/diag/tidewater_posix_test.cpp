// The log that tidewater writes. Its switch is read when the module that carries it is loaded, so
// each case loads the module in a child process of its own.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/diag/trace_probe.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// The module, loaded for as long as this lives. A failure to load it ends the process.
class Probe {
   public:
    Probe() : module_(dlopen(TRACE_PROBE, RTLD_NOW | RTLD_LOCAL)) {
        if (module_ == nullptr) _exit(111);
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;
    ~Probe() { dlclose(module_); }

    int traced() { return function<ProbeTraced>(kProbeTraced)(); }
    void text(const char* text) { function<ProbeText>(kProbeText)(text); }
    bool activated() { return function<ProbeActivated>(kProbeActivated)(); }

   private:
    template <class Function>
    Function* function(const char* name) {
        return reinterpret_cast<Function*>(dlsym(module_, name));
    }

    void* module_;
};

struct Line {
    std::string time;
    long process = 0;
    long thread = 0;
    std::string function;
    std::string file;
    long number = 0;
    std::string text;
};

std::string contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The lines of a log; one that is not well formed is a failure.
std::vector<Line> linesOf(const fs::path& file) {
    static const std::regex form(
        R"((\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z) (\d+) (\d+) (\w+) (\S+):(\d+) (.*))");
    std::vector<Line> lines;
    std::ifstream in(file);
    for (std::string text; std::getline(in, text);) {
        std::smatch part;
        if (!std::regex_match(text, part, form)) {
            ADD_FAILURE() << "not a line: " << text;
            continue;
        }
        lines.push_back({part[1], std::stol(part[2]), std::stol(part[3]), part[4], part[5],
                         std::stol(part[6]), part[7]});
    }
    return lines;
}

std::vector<std::string> texts(const std::vector<Line>& lines) {
    std::vector<std::string> found;
    for (const Line& line : lines) found.push_back(line.text);
    return found;
}

std::string secondsNow() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", gmtime_r(&now, &parts));
    return text;
}

class Tidewater : public testing::Test {
   protected:
    Tidewater() {
        std::string name = (fs::temp_directory_path() / "tidewater.XXXXXX").string();
        folder_ = mkdtemp(name.data());
        log_ = folder_ / "trace.log";
        errors_ = folder_ / "stderr";
    }
    ~Tidewater() override { fs::remove_all(folder_); }

    // Starts a child with this log, its standard error going to a file, whose exit code is work's.
    pid_t start(const char* target, const std::function<int()>& work) {
        const pid_t child = fork();
        if (child != 0) return child;
        const int errors = open(errors_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(errors, STDERR_FILENO);
        if (target == nullptr) {
            unsetenv("TIDEWATER_LOG");
        } else {
            setenv("TIDEWATER_LOG", target, 1);
        }
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

    fs::path folder_;
    fs::path log_;
    fs::path errors_;
};

int traceEverything() {
    Probe probe;
    probe.text(nullptr);
    return probe.activated() ? probe.traced() : 0;
}

TEST_F(Tidewater, WritesEveryKindOfLineWithAllFields) {
    const std::string before = secondsNow();
    const pid_t child = start(log_.c_str(), traceEverything);
    ASSERT_EQ(finish(child), 7);
    const std::string after = secondsNow();

    const auto lines = linesOf(log_);
    ASSERT_THAT(
        texts(lines),
        ElementsAre("-> probeText", "(null)", "<- probeText", "-> probeTraced", "profile mark 5",
                    "half way", "error -3: out of paper", "profile mark 0",
                    "<- probeTraced [returning 7]", "-> farewell", kProbeFarewell, "<- farewell"));
    const std::map<std::size_t, std::string> functions = {
        {3, "probeText"}, {9, "probeTraced"}, {12, "farewell"}};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        SCOPED_TRACE(lines[i].text);
        EXPECT_LE(before, lines[i].time.substr(0, before.size()));
        EXPECT_GE(after, lines[i].time.substr(0, after.size()));
        EXPECT_EQ(lines[i].process, child);
        EXPECT_EQ(lines[i].thread, child);
        EXPECT_EQ(lines[i].function, functions.upper_bound(i)->second);
        EXPECT_THAT(lines[i].file, testing::EndsWith("tests/diag/trace_probe.cpp"));
        EXPECT_GT(lines[i].number, 0);
    }
    EXPECT_THAT(contents(errors_), IsEmpty());
}

TEST_F(Tidewater, AppendsToAFileAndWritesToStandardError) {
    ASSERT_EQ(run(log_.c_str(), traceEverything), 7);
    ASSERT_EQ(run(log_.c_str(), traceEverything), 7);
    EXPECT_THAT(linesOf(log_), SizeIs(24));
    ASSERT_EQ(run("stderr", traceEverything), 7);
    EXPECT_THAT(linesOf(errors_), SizeIs(12));
}

TEST_F(Tidewater, IsSilentWithoutAFileToWrite) {
    const std::string missing = folder_ / "missing" / "trace.log";
    for (const char* target :
         {static_cast<const char*>(nullptr), "", folder_.c_str(), missing.c_str()}) {
        SCOPED_TRACE(target == nullptr ? "not set" : target);
        EXPECT_EQ(run(target, traceEverything), 0);
        EXPECT_THAT(contents(errors_), IsEmpty());
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
    for (const char* target : {"", log_.c_str(), "/dev/full"}) {
        EXPECT_EQ(run(target, keepsIt), 0) << target;
    }
}

TEST_F(Tidewater, KeepsATextOnOneLine) {
    const auto write = [] {
        Probe probe;
        probe.text("two\r\nlines\tand a tab\x7f");
        probe.text(std::string(100000, 'x').c_str());
        return 0;
    };
    ASSERT_EQ(run(log_.c_str(), write), 0);
    const auto lines = texts(linesOf(log_));
    ASSERT_THAT(lines, SizeIs(9));
    EXPECT_EQ(lines[1], "two  lines and a tab ");
    EXPECT_GT(lines[4].size(), 3000U);
    EXPECT_EQ(lines[4], std::string(lines[4].size(), 'x'));
}

TEST_F(Tidewater, LinesOfThreadsAndProcessesDoNotMix) {
    constexpr int kProcesses = 3;
    constexpr int kThreads = 4;
    constexpr int kCalls = 50;
    const auto work = [] {
        Probe probe;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&probe, t] {
                const std::string text(1000, static_cast<char>('a' + t));
                for (int i = 0; i < kCalls; ++i) probe.text(text.c_str());
            });
        }
        for (std::thread& thread : threads) thread.join();
        return 0;
    };
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) children.push_back(start(log_.c_str(), work));
    for (const pid_t child : children) EXPECT_EQ(finish(child), 0);

    std::map<std::pair<long, long>, int> linesOfThread;
    std::map<std::string, int> linesOfText;
    for (const Line& line : linesOf(log_)) {
        ++linesOfThread[{line.process, line.thread}];
        ++linesOfText[line.text];
    }
    // A main thread of each process only says farewell.
    EXPECT_THAT(linesOfThread, SizeIs(kProcesses * (kThreads + 1)));
    for (const auto& [thread, count] : linesOfThread) {
        EXPECT_EQ(count, thread.first == thread.second ? 3 : 3 * kCalls);
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(linesOfText[std::string(1000, static_cast<char>('a' + t))], kProcesses * kCalls);
    }
}

TEST_F(Tidewater, IsUnloadedWithItsModuleAndClosesItsFile) {
    const auto reload = [] {
        const auto openFiles = [] {
            return std::distance(fs::directory_iterator("/proc/self/fd"), {});
        };
        const auto before = openFiles();
        for (int i = 0; i < 100; ++i) {
            if (Probe().traced() != 7) return 1;
            if (dlopen(TRACE_PROBE, RTLD_NOW | RTLD_NOLOAD) != nullptr) return 2;
        }
        return openFiles() == before ? 0 : 3;
    };
    EXPECT_EQ(run(log_.c_str(), reload), 0);
    EXPECT_THAT(linesOf(log_), SizeIs(100 * 9));
}

}  // namespace
