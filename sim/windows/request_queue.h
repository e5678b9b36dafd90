// Requests that take their time or never end, and the thread that ends those whose time has come.
// Every function may be called by several threads at once, at passive level.
#ifndef WRENLINK_SIM_WINDOWS_REQUEST_QUEUE_H
#define WRENLINK_SIM_WINDOWS_REQUEST_QUEUE_H

#include <atomic>
#include <cstdint>

#include "sim/windows/kernel.h"

namespace quillsim {

class RequestQueue {
   public:
    static constexpr std::uint64_t kNever = ~std::uint64_t{0};

    RequestQueue();
    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;
    ~RequestQueue() { stop(); }

    NTSTATUS start();
    // Ends the thread, and every request as cancelled.
    void stop();

    // Holds a request for so long, or until it is ended by the functions below or, unless it is
    // kept, cancelled. After its time it ends with the status and the output size that it has in
    // IoStatus now. Returns STATUS_PENDING; the request must not be touched any more.
    NTSTATUS hold(IRP& irp, std::uint64_t microseconds, bool kept);

    // Ends what a device holds with this status, or what was sent by a file object that is closed
    // but is not kept.
    void endAll(const DEVICE_OBJECT* device, const FILE_OBJECT* closed, NTSTATUS status);
    // Ends what a device keeps as its time would.
    void endKept(const DEVICE_OBJECT* device);

   private:
    static void cancel(DEVICE_OBJECT* device, IRP* irp);
    static void threadMain(void* queue);
    void run();
    // Ends the requests that a predicate picks; a status other than theirs is given to them.
    template <typename Predicate>
    void endWhere(Predicate picks, const NTSTATUS* status);
    // When the earliest request is due, kNever for none.
    std::uint64_t earliest();

    KSPIN_LOCK lock_;      // guards requests_
    LIST_ENTRY requests_;  // linked through the requests themselves
    KEVENT wake_;
    void* thread_ = nullptr;
    std::atomic<bool> stopping_ = false;
};

}  // namespace quillsim

#endif
