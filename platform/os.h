// The one contract with the operating system: primitives with two backends, os_*_posix.cpp and
// os_*_windows.cpp, chosen at link time. Policy (lock counts, lazy mapping, error codes and texts)
// is written once, above.
//
// Errors. A primitive that fails says so by its result and leaves the native code where lastError()
// reads it: errno, or GetLastError(). A caller that needs the code reads it on the next line.
// Nothing here throws, except std::bad_alloc where a string or a list is returned.
//
// Names are 8-bit texts. Kernel objects live in one namespace for all processes of the session
// (Windows), or for all that use one runtime directory (POSIX).
//
// A child made by fork has none of its parent's kernel mutexes, mappings and devices: its copies of
// them are as if closed, but for views, which stay. It opens its own.
#ifndef WRENLINK_PLATFORM_OS_H
#define WRENLINK_PLATFORM_OS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace wrenlink::os {

// ---- Errors ------------------------------------------------------------------------------------

using ErrorCode = std::uint32_t;

// The calling thread's native error code.
ErrorCode lastError() noexcept;
void setLastError(ErrorCode code) noexcept;

// Writes the platform's own text for a native code, cut to size bytes and terminated; an empty text
// when it has none. Windows texts end with CR LF, which stays.
void errorText(ErrorCode code, char* buffer, std::size_t size) noexcept;

// ---- The namespace -----------------------------------------------------------------------------

// Takes from the environment where kernel objects and adapters are found (POSIX: the runtime
// directory), for all that is opened until the next call. Nothing else here looks for it, so a
// change of the environment moves nothing. False when there is no such place: then there are no
// adapters, and no kernel object can be had, as before the first call. No other thread may be
// opening anything meanwhile.
bool chooseNamespace() noexcept;

// ---- Synchronisation ---------------------------------------------------------------------------

inline constexpr std::uint32_t kInfinite = 0xFFFFFFFF;

enum class WaitResult {
    acquired,   // the mutex is held, or the event is signalled
    abandoned,  // the mutex is held; its former holder ended without releasing (Windows tells)
    timedOut,
    failed,
};

// A native handle of either system: a descriptor, or a HANDLE.
using NativeHandle = std::intptr_t;
inline constexpr NativeHandle kNoHandle = -1;

// A mutex that every process can reach by its kernel name. The operating system frees it when the
// process that holds it ends, however it ends. One object must not be used by two threads at once.
//
// A mutex that cannot be had, for want of permission or of handles, or because something else has
// the name, is not valid() and cannot be waited for; nothing else tells.
//
// Windows: the thread that waited owns the mutex and may wait for it again through another object.
// POSIX: the object owns the mutex; a second object of the same thread would wait. Nothing above
// relies on either.
class KernelMutex {
   public:
    KernelMutex() noexcept = default;
    // Creates the mutex, or opens the one of that name, without acquiring it. Check valid().
    explicit KernelMutex(std::string_view kernelName) noexcept;
    KernelMutex(const KernelMutex&) = delete;
    KernelMutex& operator=(const KernelMutex&) = delete;
    KernelMutex(KernelMutex&& other) noexcept : handle_(std::exchange(other.handle_, kNoHandle)) {}
    KernelMutex& operator=(KernelMutex&& other) noexcept {
        const NativeHandle taken = std::exchange(other.handle_, kNoHandle);
        close();
        handle_ = taken;
        return *this;
    }
    ~KernelMutex() { close(); }

    bool valid() const noexcept;
    // Waits at most so many milliseconds, or without limit for kInfinite. An invalid mutex fails.
    WaitResult wait(std::uint32_t milliseconds) noexcept;
    // For the holder: gives the mutex back. False when the system refuses.
    bool release() noexcept;
    void close() noexcept;

   private:
    NativeHandle handle_ = kNoHandle;
};

// A mutex of this process, re-entrant for the thread that holds it.
class LocalMutex {
   public:
    LocalMutex() noexcept;
    LocalMutex(const LocalMutex&) = delete;
    LocalMutex& operator=(const LocalMutex&) = delete;
    ~LocalMutex() { destroy(); }

    void enter() noexcept;
    void leave() noexcept;

   private:
    void destroy() noexcept;

    // Room for the largest: 40 bytes on x86-64, also on Windows, and 48 on 64-bit ARM.
    alignas(8) std::byte native_[48];
};

// ---- Shared memory -----------------------------------------------------------------------------

// A block of memory that every process can map by its kernel name. It is zeroed when it is made and
// gone when its last holder has closed it or ended. Two processes that make one name at the very
// same moment may both be told that they created it, unless they hold a mutex around the call.
//
// POSIX: whoever may open the block may also cut its file short, and then SIGBUS ends a process
// that looks at its view. No memory that has a name refuses that, and a handler of the signal would
// be the host's to install: the folder's permissions must admit only users who are trusted so far.
class FileMapping {
   public:
    FileMapping() noexcept = default;
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;
    FileMapping(FileMapping&& other) noexcept : handle_(std::exchange(other.handle_, kNoHandle)) {}
    FileMapping& operator=(FileMapping&& other) noexcept {
        const NativeHandle taken = std::exchange(other.handle_, kNoHandle);
        close();
        handle_ = taken;
        return *this;
    }
    ~FileMapping() { close(); }

    // Creates the block, or opens the one of that name and size; `existed` tells which, and is
    // false when the call failed. An object of that name that is not such a block is refused; but
    // Windows, which sees sizes in whole pages, lets map() refuse a block that is too small.
    static FileMapping open(std::string_view kernelName, std::size_t size, bool& existed) noexcept;
    bool valid() const noexcept;
    // Maps the whole block for reading and writing; null when it cannot be mapped.
    void* map(std::size_t size) noexcept;
    static void unmap(void* view, std::size_t size) noexcept;
    // Views stay mapped, but no longer keep the block's name.
    void close() noexcept;

   private:
    NativeHandle handle_ = kNoHandle;
};

// ---- What the modules of one process share -----------------------------------------------------
//
// Several modules of a process may carry this code (two copies of the library, say). They find one
// another's objects by name; no other process can. A child made by fork has its own copies.

// A block of memory as above, for the modules of this process: zeroed when made, gone when the last
// module has closed it. Null when it cannot be had.
struct ProcessBlock {
    NativeHandle handle = kNoHandle;
    void* view = nullptr;
    bool existed = false;
};
ProcessBlock openProcessBlock(const char* name, std::size_t size) noexcept;
void closeProcessBlock(ProcessBlock& block) noexcept;

// A mutex for the modules of this process; null when it cannot be had.
struct ProcessMutex;
ProcessMutex* openProcessMutex(const char* name) noexcept;
void lockProcessMutex(ProcessMutex* mutex) noexcept;
void unlockProcessMutex(ProcessMutex* mutex) noexcept;
void closeProcessMutex(ProcessMutex* mutex) noexcept;

// An index under which each thread keeps one pointer, null at first. Nothing runs when a thread
// ends.
using ThreadIndex = std::uint32_t;
bool makeThreadIndex(ThreadIndex& index) noexcept;
void* threadValue(ThreadIndex index) noexcept;  // leaves lastError() as it was
bool setThreadValue(ThreadIndex index, void* value) noexcept;
void freeThreadIndex(ThreadIndex index) noexcept;

// Memory for records that one module makes and another may free; null when there is none.
void* allocateRecord(std::size_t size) noexcept;
void freeRecord(void* record) noexcept;

// ---- Devices -----------------------------------------------------------------------------------

// The device paths of the present adapters, in a stable order, at most so many. A system that
// cannot list them has none.
std::vector<std::string> presentAdapters(std::size_t most);

enum class RequestStart {
    completed,  // signalled already; collect the outcome as for a pending one
    pending,    // lastError() is EINPROGRESS or ERROR_IO_PENDING
    failed,
};

// How long a cancelled request is waited for.
inline constexpr std::uint32_t kCancelLimitMs = 250;

struct DriverRequest;  // what the driver has of a request (Windows)

// One adapter's driver, opened for one control request. Call in this order: open, makeEvent, start,
// wait, outcome. Destroying it cancels a request that is still in flight and waits until the driver
// has given it back, at most kCancelLimitMs, then closes the device. The driver never has the
// caller's buffers: a request that it keeps has memory and an event of its own, which stay behind.
class Device {
   public:
    Device() noexcept = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ~Device() { close(); }

    // Opens the driver for this user alone, for reading. Does not wait for a busy driver.
    bool open(const char* devicePath) noexcept;
    // Makes the event that a completion signals.
    bool makeEvent() noexcept;
    // Hands over a request with a control code of the buffered kind (its two low bits are 0), which
    // takes the request's bytes at once. The reply's buffer is written by wait() and outcome()
    // alone: of a successful reply at most replyCapacity bytes, and bytes it does not have are left
    // as they were.
    RequestStart start(std::uint32_t controlCode, const void* request, std::size_t requestSize,
                       void* reply, std::size_t replyCapacity) noexcept;
    // Waits for the completion: acquired, timedOut or failed. A time-out leaves lastError() as the
    // start of the request left it.
    WaitResult wait(std::uint32_t milliseconds) noexcept;
    // True when the request succeeded, without waiting.
    bool outcome() noexcept;
    void close() noexcept;

   private:
    // Takes the completion, with recvmsg's flags; false when there is none yet (POSIX).
    bool receive(int flags) noexcept;
    // A request that is in flight afterwards is still the driver's.
    void cancelAndWait() noexcept;

    NativeHandle device_ = kNoHandle;
    bool inFlight_ = false;
    void* reply_ = nullptr;
    std::size_t replyCapacity_ = 0;
    [[maybe_unused]] ErrorCode completion_ = 0;          // POSIX
    [[maybe_unused]] NativeHandle event_ = kNoHandle;    // Windows
    [[maybe_unused]] DriverRequest* request_ = nullptr;  // Windows
};

// ---- System ------------------------------------------------------------------------------------

// Reads an environment variable; false when it is not set, or when the process runs with rights
// that its caller does not have.
bool environmentVariable(const char* name, std::string& value);

// The folder for documents that all users share, in UTF-8, without a separator at its end. POSIX:
// looks into the environment.
bool sharedDocumentsFolder(std::string& folder);

// Between the folders and the file of a path.
extern const char kPathSeparator;

// Opens an ordinary file for reading as text, by its UTF-8 name; null when that is not possible or
// what has the name is not an ordinary file. Close with std::fclose.
std::FILE* openTextFile(const char* path) noexcept;

}  // namespace wrenlink::os

#endif
