// The library as hosts have it that load it while they run.
#ifndef WRENLINK_TESTS_EXPORTS_LOADED_LIBRARY_H
#define WRENLINK_TESTS_EXPORTS_LOADED_LIBRARY_H

#include "tests/support/loaded_module.h"
#include "wrenlink/spifns.h"

namespace wrenlink::test {

class LoadedLibrary : public LoadedModule {
   public:
    explicit LoadedLibrary(const std::string& path = WRENLINK_LIBRARY) : LoadedModule(path) {}

    decltype(&spifns_stream_init) const init =
        find<decltype(spifns_stream_init)>("spifns_stream_init");
    decltype(&spifns_stream_close) const close =
        find<decltype(spifns_stream_close)>("spifns_stream_close");
    decltype(&spifns_stream_sequence) const run =
        find<decltype(spifns_stream_sequence)>("spifns_stream_sequence");
    decltype(&spifns_stream_getvar) const getvar =
        find<decltype(spifns_stream_getvar)>("spifns_stream_getvar");
    decltype(&spifns_get_last_error) const lastError =
        find<decltype(spifns_get_last_error)>("spifns_get_last_error");
    decltype(&spifns_clear_last_error) const clearLastError =
        find<decltype(spifns_clear_last_error)>("spifns_clear_last_error");
};

}  // namespace wrenlink::test

#endif
