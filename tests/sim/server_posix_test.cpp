// The server process as hosts and operators meet it: sockets that come and go, adapters that do not
// hold each other up, and the control socket.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "platform/os.h"
#include "tests/support/quillsim_posix.h"
#include "tests/support/test_runtime.h"

namespace quillsim::test {
namespace {

using std::filesystem::path;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using wrenlink::test::Quillsim;

// A host that has an adapter open.
class Host {
   public:
    explicit Host(const path& socketPath) : isOpen_(device_.open(socketPath.c_str())) {}

    bool isOpen() const { return isOpen_; }
    void askDelay() {
        EXPECT_EQ(device_.start(0x220000, "\3\0\4\0\0\5", 7, reply_, sizeof reply_),
                  wrenlink::os::RequestStart::pending);
    }
    // Whether the request ends in time, and whether it ends well.
    bool ends(std::uint32_t milliseconds = 5000) {
        return device_.wait(milliseconds) == wrenlink::os::WaitResult::acquired;
    }
    bool hasAnswer() { return ends() && device_.outcome(); }

   private:
    wrenlink::os::Device device_;
    bool isOpen_;
    unsigned char reply_[4] = {};
};

class ServerTest : public testing::Test {
   protected:
    path adapterPath(const std::string& name) const { return runtime_ / "adapters" / name; }

    std::set<std::string> adapterNames() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(runtime_ / "adapters"))
            names.insert(entry.path().filename());
        return names;
    }

    // Sends a command and returns what the client prints; "failed" when it fails.
    std::string control(const std::string& command) const {
        Quillsim client(runtime_, {"--control", command});
        std::string output;
        for (std::string line = client.readLine(); !line.empty(); line = client.readLine()) {
            output += line + '\n';
        }
        return client.wait() == 0 ? output : "failed";
    }

    // The exit code and the error that a command line ends with.
    std::string refusal(std::vector<std::string> words) const {
        words.insert(words.begin(), QUILLSIM);
        const path errors = folder_.path() / "errors";
        const int code = wrenlink::test::Program(words, {}, errors).wait();
        std::string text;
        std::getline(std::ifstream(errors), text, '\0');
        return std::to_string(code) + ' ' + text;
    }

    const wrenlink::test::TestRuntime folder_;
    path runtime_ = folder_.path() / "run";
};

TEST_F(ServerTest, OffersAdaptersAndCleansUp) {
    runtime_ = folder_.path() / std::string(120, 'x');  // too long for a socket's address
    Quillsim server(runtime_, {"--adapters", "11", "--mode", "0750"});
    ASSERT_EQ(server.readLine(), "ready");
    EXPECT_THAT(adapterNames(),
                testing::AllOf(SizeIs(11), Contains("quill00"), Contains("quill10")));
    EXPECT_THAT(control("count 10"), HasSubstr("requests=0 "));
    struct stat status {};
    ASSERT_EQ(::stat((runtime_ / "objects").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 02750U);
    server.interrupt();
    EXPECT_EQ(server.wait(), 0);
    EXPECT_THAT(adapterNames(), IsEmpty());
    EXPECT_FALSE(exists(runtime_ / "quillsim.control"));
}

TEST_F(ServerTest, TakesOverFromADeadServerButNotFromALiveOne) {
    Quillsim killed(runtime_, {"--adapters", "3"});
    ASSERT_EQ(killed.readLine(), "ready");
    killed.kill();

    Quillsim server(runtime_, {"--adapters", "2"});
    ASSERT_EQ(server.readLine(), "ready");
    EXPECT_THAT(adapterNames(), ElementsAre("quill0", "quill1"));

    EXPECT_EQ(refusal({"--runtime-dir", runtime_}),
              "1 quillsim: " + runtime_.string() + " is already served by another simulator\n");
    Host host(adapterPath("quill0"));
    host.askDelay();
    EXPECT_TRUE(host.hasAnswer());
}

TEST_F(ServerTest, RefusesWhatMakesNoSense) {
    const std::string help = "; --help tells what there is\n";
    EXPECT_EQ(refusal({"--frob"}),
              "2 quillsim: The following argument was not expected: --frob" + help);
    EXPECT_EQ(refusal({"--runtime-dir", "lab"}),
              "2 quillsim: --runtime-dir: 'lab' is not an absolute path" + help);
    EXPECT_EQ(refusal({"--firmware", "1"}),
              "2 quillsim: --firmware: '1' is not MAJOR.MINOR" + help);
    EXPECT_EQ(refusal({"--runtime-dir", runtime_, "--control", "list"}),
              "1 quillsim: no simulator serves " + runtime_.string() + '\n');
    EXPECT_EQ(refusal({"--version"}), "0 ");
}

TEST_F(ServerTest, SilentAndDelayedRequestsHoldNobodyUp) {
    Quillsim server(runtime_, {"--adapters", "2"});
    ASSERT_EQ(server.readLine(), "ready");
    EXPECT_EQ(control("fault 0 silence 1"), "");
    EXPECT_EQ(control("fault 1 delay 400 1"), "");
    Host silent(adapterPath("quill0"));
    Host delayed(adapterPath("quill1"));
    silent.askDelay();
    delayed.askDelay();
    for (const char* name : {"quill0", "quill1"}) {
        Host other(adapterPath(name));
        other.askDelay();
        EXPECT_TRUE(other.hasAnswer());
    }
    EXPECT_TRUE(delayed.hasAnswer());
    EXPECT_FALSE(silent.ends(0));
}

TEST_F(ServerTest, UnpluggingCutsHostsOffUntilItIsPluggedAgain) {
    Quillsim server(runtime_, {"--adapters", "2"});
    ASSERT_EQ(server.readLine(), "ready");
    Host host(adapterPath("quill0"));
    ASSERT_TRUE(host.isOpen());
    EXPECT_EQ(control("fault 0 silence"), "");
    host.askDelay();
    EXPECT_EQ(control("unplug 0"), "");
    EXPECT_TRUE(host.ends());
    EXPECT_FALSE(host.hasAnswer());
    EXPECT_THAT(adapterNames(), ElementsAre("quill1"));
    EXPECT_EQ(control("plug 0"), "");
    EXPECT_TRUE(Host(adapterPath("quill0")).isOpen());
}

TEST_F(ServerTest, StartsWithItsOptions) {
    std::ofstream(folder_.path() / "image", std::ios::binary) << "\x34\x12";
    Quillsim server(runtime_, {"--adapters", "2", "--id", "7", "--firmware", "1.4", "--memory",
                               folder_.path() / "image", "--xap", "stopped"});
    ASSERT_EQ(server.readLine(), "ready");
    EXPECT_THAT(control("state 0"), HasSubstr(" id=7 firmware=1.4 "));
    EXPECT_THAT(control("state 1"), HasSubstr(" id=200 firmware=1.4 "));
    EXPECT_THAT(control("state 1"), HasSubstr(" xap=0x0001 "));
    EXPECT_EQ(control("peek 0 0 2"), "0x1234 0x0000\n");
    EXPECT_EQ(control("peek 2 0 1"), "failed");
}

}  // namespace
}  // namespace quillsim::test
