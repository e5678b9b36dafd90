// Control requests without an adapter: the file system of named pipes answers some at once, and
// keeps others waiting.
#include <gtest/gtest.h>
#include <windows.h>
// This needs the types of windows.h.
#include <winioctl.h>

#include <algorithm>
#include <array>
#include <string>

#include "platform/os.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {
namespace {

constexpr DWORD kPeek = 0x11400C;
constexpr DWORD kWaitForPipe = 0x110018;
constexpr DWORD kUnknownRequest = 0x220000;

class PipeDevice : public testing::Test {
   protected:
    // A pipe whose other end has written some bytes.
    void openPipe(const std::string& name, const std::string& bytes) {
        const std::string path = R"(\\.\pipe\)" + name;
        server_ = ::CreateNamedPipeA(path.c_str(), PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1, 256,
                                     256, 0, nullptr);
        ASSERT_TRUE(device_.open(path.c_str()));
        DWORD written = 0;
        ASSERT_TRUE(::WriteFile(server_, bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                                nullptr));
        ASSERT_TRUE(device_.makeEvent());
    }
    ~PipeDevice() override { ::CloseHandle(server_); }

    test::TestRuntime runtime_;
    HANDLE server_ = INVALID_HANDLE_VALUE;
    Device device_;
};

TEST_F(PipeDevice, MissingDeviceCannotBeOpened) {
    EXPECT_FALSE(device_.open(R"(\\?\quill#none#{7ac3548c-4e55-49be-8db1-f473f4246a58})"));
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(device_.wait(0), WaitResult::failed) << "nothing was started";
}

TEST_F(PipeDevice, RequestThatIsAnsweredAtOnce) {
    openPipe(runtime_.name("peek"), "12345");
    // The pipe's state takes 16 bytes, its data the rest; the last bytes are not written.
    std::array<char, 24> reply;
    reply.fill('-');
    ASSERT_NE(device_.start(kPeek, nullptr, 0, reply.data(), reply.size()), RequestStart::failed);
    EXPECT_EQ(device_.wait(1000), WaitResult::acquired);
    EXPECT_TRUE(device_.outcome());
    EXPECT_EQ(std::string(reply.data() + 16, 8), "12345---");
}

TEST_F(PipeDevice, RequestThatIsRefusedAtOnce) {
    openPipe(runtime_.name("refused"), "");
    EXPECT_EQ(device_.start(kUnknownRequest, "x", 1, nullptr, 0), RequestStart::failed);
    EXPECT_NE(lastError(), static_cast<ErrorCode>(ERROR_IO_PENDING));
    EXPECT_NE(lastError(), 0U);
}

TEST_F(PipeDevice, RequestThatIsGivenUpIsOverAfterClose) {
    // Waits for a free end of a pipe that has none.
    const std::string name = runtime_.name("busy");
    openPipe(name, "");
    struct {
        LARGE_INTEGER timeLimit;
        ULONG nameBytes;
        BOOLEAN timeLimitGiven;
        wchar_t name[128];
    } request = {{}, static_cast<ULONG>(2 * name.size()), TRUE, {}};
    request.timeLimit.QuadPart = -10'000LL * 400;  // in steps of 100 ns, from now on
    std::copy(name.begin(), name.end(), request.name);

    Device device;
    ASSERT_TRUE(device.open(R"(\\.\pipe\)"));
    ASSERT_TRUE(device.makeEvent());
    ASSERT_EQ(device.start(kWaitForPipe, &request, sizeof request, nullptr, 0),
              RequestStart::pending);
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ERROR_IO_PENDING));
    EXPECT_EQ(device.wait(20), WaitResult::timedOut);
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ERROR_IO_PENDING));
    EXPECT_FALSE(device.outcome());
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ERROR_IO_INCOMPLETE));
    device.close();
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ERROR_IO_INCOMPLETE));
    EXPECT_EQ(device.wait(0), WaitResult::failed) << "nothing is left to wait for";
}

}  // namespace
}  // namespace wrenlink::os
