// Kernel objects and adapters as files of the runtime directory.
#include "platform/runtime_dir_posix.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <barrier>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "platform/os.h"
#include "platform/shared_memory.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSize = 4;

class RuntimeDir : public testing::Test {
   protected:
    RuntimeDir() : objects_(runtime_.path() / "objects"), adapters_(runtime_.path() / "adapters") {
        EXPECT_TRUE(chooseNamespace());
    }

    // Whether the environment with this runtime directory offers one.
    static bool choose(const std::string& directory) {
        ::setenv("WRENLINK_RUNTIME_DIR", directory.c_str(), 1);
        return chooseNamespace();
    }

    static bool canMap(const std::string& name) {
        bool existed = false;
        return FileMapping::open(name, kSize, existed).valid();
    }

    static void makeFile(const fs::path& path, std::size_t size) {
        std::ofstream(path) << std::string(size, 'x');
    }

    static std::string contents(const fs::path& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static void makeSocket(const fs::path& path) {
        sockaddr_un address{AF_UNIX, {}};
        path.native().copy(address.sun_path, sizeof address.sun_path - 1);
        const Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
        ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    test::TestRuntime runtime_;
    const fs::path objects_;
    const fs::path adapters_;
};

TEST_F(RuntimeDir, FileNameIsTheKernelNameIfItCanBe) {
    const std::string longest(NAME_MAX, 'n');
    const std::string tooLong = longest + "n";
    const std::string tooLongFile = longest.substr(0, 200) + "~512dc65af22aa725";
    const std::string escapedAtTheCut = longest.substr(0, 199) + "/x";
    const std::string escapedFile = longest.substr(0, 199) + "~bbdf3f0426f3cdde";
    const struct {
        std::string_view kernelName;
        std::string_view fileName;
    } cases[] = {
        {"kvs_mutex_--?-usb#a{b}", "kvs_mutex_--?-usb#a{b}"},
        {longest, longest},
        {"..", "..~07da1a07b4a03f2d"},
        {".", ".~af63a34c86018bb1"},
        {"", "~cbf29ce484222325"},
        {{"a\0b", 3}, "a%00b~e5d29919042666b2"},
        {"kvs_shm_a/b", "kvs_shm_a%2Fb~5b148feafbc6f8d9"},
        {tooLong, tooLongFile},
        {escapedAtTheCut, escapedFile},
    };
    for (const auto& row : cases) EXPECT_EQ(ObjectFileName(row.kernelName).text(), row.fileName);
}

TEST_F(RuntimeDir, TheEnvironmentNamesTheFolders) {
    EXPECT_FALSE(choose("/" + std::string(PATH_MAX, 'd')));
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ENAMETOOLONG));
    ::unsetenv("WRENLINK_RUNTIME_DIR");
    const bool found = chooseNamespace();
    const std::string unset = runtimeDirectory();
    EXPECT_EQ(choose(""), found);
    EXPECT_EQ(runtimeDirectory(), unset);

    const struct {
        const char* value;
        const char* folder;
    } cases[] = {{"/docs", "/docs"}, {"/docs//", "/docs"}, {"/", ""}, {"", "/etc/wrenlink"}};
    for (const auto& c : cases) {
        ::setenv("WRENLINK_DOCUMENTS_DIR", c.value, 1);
        std::string folder;
        EXPECT_TRUE(sharedDocumentsFolder(folder));
        EXPECT_EQ(folder, c.folder);
    }
    ::unsetenv("WRENLINK_DOCUMENTS_DIR");
}

TEST_F(RuntimeDir, NewFilesHaveTheAccessOfTheirFolder) {
    fs::permissions(objects_, fs::perms(0770));
    const mode_t mask = ::umask(0077);
    const KernelMutex mutex("mutex");
    ::umask(mask);
    EXPECT_EQ(fs::status(objects_ / "mutex").permissions(), fs::perms(0660));
}

// No block is put into what is not one. A lock asks for less: that all who name it mean the same.
TEST_F(RuntimeDir, ForeignFilesAreLeftAloneAndMayBeLockedButNotFollowed) {
    const fs::path victims[] = {runtime_.path() / "linked", runtime_.path() / "hard linked"};
    for (const fs::path& victim : victims) makeFile(victim, kSize);
    fs::create_symlink(victims[0], objects_ / "link");
    fs::create_hard_link(victims[1], objects_ / "hard link");
    fs::create_symlink("nowhere", objects_ / "dangling link");
    fs::create_directory(objects_ / "folder");
    makeSocket(objects_ / "socket");
    ASSERT_EQ(::mkfifo((objects_ / "pipe").c_str(), 0666), 0);
    makeFile(objects_ / "short", kSize - 1);
    makeFile(objects_ / "long", kSize + 1);
    const struct {
        const char* name;
        bool canBeLocked;
    } cases[] = {
        {"link", false},     {"dangling link", false}, {"folder", false}, {"socket", false},
        {"hard link", true}, {"pipe", true},           {"short", true},   {"long", true},
    };
    for (const auto& [name, canBeLocked] : cases) {
        EXPECT_FALSE(canMap(name)) << name;
        KernelMutex mutex(name);
        EXPECT_EQ(mutex.valid(), canBeLocked) << name;
        if (!canBeLocked) continue;
        EXPECT_EQ(mutex.wait(0), WaitResult::acquired) << name;
        EXPECT_EQ(KernelMutex(name).wait(0), WaitResult::timedOut) << name;
    }
    for (const fs::path& victim : victims) EXPECT_EQ(contents(victim), std::string(kSize, 'x'));
    EXPECT_EQ(fs::file_size(objects_ / "short"), kSize - 1);
    EXPECT_EQ(fs::file_size(objects_ / "long"), kSize + 1);
    EXPECT_FALSE(fs::exists(objects_ / "nowhere"));
}

TEST_F(RuntimeDir, FolderThatIsALinkIsRefused) {
    fs::rename(objects_, runtime_.path() / "elsewhere");
    fs::create_directory_symlink("elsewhere", objects_);
    EXPECT_FALSE(KernelMutex("mutex").valid());
    EXPECT_TRUE(fs::is_empty(runtime_.path() / "elsewhere"));
}

TEST_F(RuntimeDir, EmptyFileOfACrashIsPutRight) {
    makeFile(objects_ / "crashed", 0);
    SharedMemory region("crashed", kSize, std::byte{0xFF});
    makeFile(objects_ / "kvs_shm_crashed", 0);
    ASSERT_NE(region.view(), nullptr);
    EXPECT_TRUE(region.created());
    EXPECT_EQ(region.view()[kSize - 1], std::byte{0xFF});
}

TEST_F(RuntimeDir, AdaptersAreTheSocketsInByteOrder) {
    for (const char* name : {"quill10", "quill2", "Quill", "\xC3\xBC"})
        makeSocket(adapters_ / name);
    makeFile(adapters_ / "file", 1);
    fs::create_directory(adapters_ / "folder");
    fs::create_symlink("quill2", adapters_ / "link");
    const std::string prefix = adapters_.string() + "/";
    const std::vector<std::string> all = {prefix + "Quill", prefix + "quill10", prefix + "quill2",
                                          prefix + "\xC3\xBC"};
    EXPECT_EQ(presentAdapters(32), all);
    EXPECT_THAT(presentAdapters(2), testing::ElementsAre(all[0], all[1]));
}

// Whoever comes second opens what the first one has just made.
TEST_F(RuntimeDir, ManyMayMakeOneObjectAtOnce) {
    std::barrier together(2);
    const auto make = [&together] {
        for (int i = 0; i < 500; ++i) {
            together.arrive_and_wait();
            EXPECT_TRUE(KernelMutex(std::to_string(i)).valid()) << std::strerror(errno);
        }
    };
    std::thread other(make);
    make();
    other.join();
}

TEST_F(RuntimeDir, MayItselfBeReachedByALink) {
    makeSocket(adapters_ / "quill");
    KernelMutex mutex("mutex");
    ASSERT_EQ(mutex.wait(0), WaitResult::acquired);
    fs::create_directory_symlink(runtime_.path(), runtime_.path() / "alias");
    ASSERT_TRUE(choose(runtime_.path() / "alias/objects/..//"));
    EXPECT_THAT(presentAdapters(32), testing::ElementsAre((adapters_ / "quill").string()));
    EXPECT_EQ(KernelMutex("mutex").wait(0), WaitResult::timedOut);
    EXPECT_EQ(KernelMutex("another").wait(0), WaitResult::acquired);
}

TEST_F(RuntimeDir, WithoutADirectoryThereIsNothing) {
    makeSocket(adapters_ / "quill");
    // A relative path is none, even where it leads to the directory now.
    const fs::path relative = fs::relative(runtime_.path());
    for (const fs::path& directory : {runtime_.path() / "missing", relative}) {
        EXPECT_FALSE(choose(directory)) << directory;
        EXPECT_TRUE(presentAdapters(32).empty()) << directory;
        EXPECT_FALSE(KernelMutex("mutex").valid()) << directory;
        EXPECT_EQ(lastError(), static_cast<ErrorCode>(ENOENT));
    }
}

}  // namespace
}  // namespace wrenlink::os
