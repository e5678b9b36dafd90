// Hosts of other users, hosts that are stopped, and adapters whose server ends under its hosts.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <memory>
#include <set>
#include <thread>

#include "tests/exports/host.h"
#include "tests/support/child_process.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

// Tells its process id, and reads a word when the parent says go.
int readOnce(const Arguments&) {
    const Stream stream("0");
    tellParent(std::to_string(::getpid()));
    awaitParent();
    tellParent(stream.ask("r0:1"));
    return 0;
}
const ChildRole kReadOnce("read once", readOnce);

TEST(Processes, WaitForOneThatIsStopped) {
    using std::chrono::milliseconds;
    Simulator simulator({100, 200});
    const Stream waiting("0");
    const Stream elsewhere("200");
    ChildProcess holder("read once");
    const pid_t id = std::stoi(holder.readLine());
    simulator.takeFrames();
    simulator.control("fault 0 delay 500");
    holder.go();
    while (simulator.control("log 0").empty()) std::this_thread::yield();
    ASSERT_EQ(::kill(id, SIGSTOP), 0);
    auto result = std::async(std::launch::async, [&] { return waiting.run("r0:1"); });
    EXPECT_EQ(elsewhere.run("r0:1"), 0);
    EXPECT_EQ(result.wait_for(milliseconds(600)), std::future_status::timeout);
    ASSERT_EQ(::kill(id, SIGCONT), 0);
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(holder.readLine(), "0");
}

// An adapter's server, for this runtime directory, that a test can kill. Leaves its sockets behind
// then.
std::unique_ptr<Program> startServer(Arguments words) {
    words.insert(words.begin(), QUILLSIM);
    auto server = std::make_unique<Program>(words);
    EXPECT_EQ(server->readLine(), "ready");
    return server;
}

TEST(Processes, OutliveTheServerOfTheirAdapter) {
    const TestRuntime runtime;
    const SharedDocuments documents;
    auto server = startServer({"--id", "100", "--answer-us", "200"});
    const std::string cannotOpen = ": Unable to open USB driver: Unable to send sequence";
    const std::string ioFailed = ": Driver IO failed: Unable to send sequence";
    const Failure refused = {515, 0, textOf(ECONNREFUSED) + cannotOpen};
    const unsigned kills = 10 * scale();
    std::set<std::string> failures;
    {
        const Stream stream("0");
        std::atomic<bool> done = false;
        std::thread other([&] {
            while (!done)
                if (stream.run("r0:600") != 0) failures.insert(lastFailure().text);
        });
        for (unsigned i = 0; i < kills; ++i) {
            const Stream own("0");
            EXPECT_EQ(own.set("SPI_DELAY", "9"), 0);
            server->kill();
            EXPECT_EQ(outcome(own.run("r0:1")), refused);
            server = startServer({"--id", "100", "--answer-us", "200"});
            EXPECT_EQ(own.run("r0:1"), 0);
            EXPECT_EQ(own.get("SPI_DELAY"), "4") << "as at power-on";
        }
        done = true;
        other.join();
        // Another adapter in its place works, under the name that the hosts know.
        server = nullptr;
        server = startServer({"--id", "200"});
        EXPECT_EQ(stream.run("r0:1"), 0);
        char name[16];
        EXPECT_EQ(spifns_stream_get_device_id(stream.id(), name, sizeof name), 0);
        EXPECT_STREQ(name, "quill100");
    }
    EXPECT_EQ(Stream("200").set("SPI_DELAY", "9"), 0);
    EXPECT_THAT((std::set<std::string>{refused.text, textOf(ENOENT) + cannotOpen,
                                       textOf(ECONNRESET) + ioFailed}),
                testing::IsSupersetOf(failures));
    std::cout << kills << " servers killed, " << failures.size() << " kinds of failure\n";
}

// Becomes a user of some groups, gives the adapter a delay, and tells what went wrong; then, when
// the parent says go, the delay that it finds.
int visit(const Arguments& arguments) {
    const auto id = static_cast<uid_t>(std::stoul(arguments.at(0)));
    const auto group = static_cast<gid_t>(std::stoul(arguments.at(1)));
    if (::setgroups(1, &group) != 0 || ::setgid(id) != 0 || ::setuid(id) != 0) return 1;
    ::umask(0077);
    const Stream stream;
    tellParent(outcome(stream.set("SPIPORT", "0")).text);
    tellParent(outcome(stream.set("SPI_DELAY", arguments.at(2).c_str())).text);
    awaitParent();
    tellParent(stream.get("SPI_DELAY"));
    return 0;
}
const ChildRole kVisit("visit", visit);

// What a visitor tells after its settings.
std::string settingsOf(ChildProcess& visitor) {
    const std::string selected = visitor.readLine();
    return selected + '/' + visitor.readLine();
}

TEST(Processes, OfAllUsersWhoMayShareAnAdapter) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become other users";
    const group* const shared = ::getgrnam("users");
    ASSERT_NE(shared, nullptr);
    const std::string member = std::to_string(shared->gr_gid);
    const struct {
        const char* access;
        mode_t objects;
        mode_t cache;  // of the delay, when the outsider comes
        const char* ofOutsider;
        const char* delay;  // in the end
    } cases[] = {
        {"0770", 02770, 0660,
         "Couldn't find device with id (0)/Cannot Set Delays with no device selected", "7"},
        // A folder as for temporary files, which kernels guard more.
        {"0777", 01777, 0666, "/", "5"},
        {"0777", 01777, 0600, "/Error allocating shared memory for delays", "7"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.access);
        const TestRuntime runtime;
        const SharedDocuments documents;
        std::filesystem::permissions(runtime.path(), std::filesystem::perms(0755));
        const auto folder = runtime.path() / "run";
        setEnvironment("WRENLINK_RUNTIME_DIR", folder);
        const auto server = startServer({"--mode", c.access, "--group", "users"});
        ASSERT_EQ(::chmod((folder / "objects").c_str(), c.objects), 0);
        ChildProcess first("visit", {"60001", member, "9"});
        EXPECT_EQ(settingsOf(first), "/");
        ChildProcess second("visit", {"60002", member, "7"});
        EXPECT_EQ(settingsOf(second), "/");
        ASSERT_EQ(::chmod((folder / "objects/kvs_shm_quilldelays100").c_str(), c.cache), 0);
        ChildProcess outsider("visit", {"60003", "60003", "5"});
        EXPECT_EQ(settingsOf(outsider), c.ofOutsider);
        first.go();
        EXPECT_EQ(first.readLine(), c.delay) << "as the last one who may has set it";
    }
}

}  // namespace
}  // namespace wrenlink::test
