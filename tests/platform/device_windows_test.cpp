// Control requests that are over at once, as the file system of named pipes answers them.
#include <gtest/gtest.h>
#include <windows.h>
// This needs the types of windows.h.
#include <winioctl.h>

#include <array>
#include <string>

#include "platform/os.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {
namespace {

constexpr DWORD kPeek = 0x11400C;
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

TEST_F(PipeDevice, RequestThatIsAnsweredAtOnce) {
    openPipe(runtime_.name("peek"), "12345");
    EXPECT_EQ(device_.wait(0), WaitResult::failed) << "nothing was started";
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

}  // namespace
}  // namespace wrenlink::os
