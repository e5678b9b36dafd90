// Calls of a host's own functions.
#ifndef WRENLINK_QUILL_HOST_CALL_H
#define WRENLINK_QUILL_HOST_CALL_H

#include <exception>
#include <new>

namespace wrenlink {

// Carries a host's own std::bad_alloc past those who look out for the library's.
struct HostThrew {
    std::exception_ptr what;
};

// Calls a host's function. What it throws passes through; its std::bad_alloc as HostThrew.
template <class Function, class... Arguments>
void callHost(Function* function, Arguments... arguments) {
    try {
        function(arguments...);
    } catch (const std::bad_alloc&) {
        throw HostThrew{std::current_exception()};
    }
}

}  // namespace wrenlink

#endif
