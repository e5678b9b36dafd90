// What other libraries take for jobs that can be compared with the library's. Names end in the name
// of the other library.
#include <benchmark/benchmark.h>
#include <libusb.h>
#include <unistd.h>

#include <boost/interprocess/sync/named_mutex.hpp>
#include <string>

namespace {

// Looks for devices, as a host does that looks for adapters.
void listDevices(benchmark::State& state) {
    for (auto _ : state) {
        libusb_context* context = nullptr;
        if (libusb_init(&context) != 0) return state.SkipWithError("cannot start libusb");
        libusb_device** devices = nullptr;
        benchmark::DoNotOptimize(libusb_get_device_list(context, &devices));
        if (devices != nullptr) libusb_free_device_list(devices, 1);
        libusb_exit(context);
    }
}
BENCHMARK(listDevices)->Name("open_list_select_close/libusb")->UseRealTime();

void namedMutex(benchmark::State& state) {
    using boost::interprocess::named_mutex;
    const std::string name = "wrenlink-bench-" + std::to_string(::getpid());
    {
        const named_mutex made(boost::interprocess::open_or_create, name.c_str());
        for (auto _ : state) {
            named_mutex mutex(boost::interprocess::open_or_create, name.c_str());
            mutex.lock();
            mutex.unlock();
        }
    }
    named_mutex::remove(name.c_str());
}
BENCHMARK(namedMutex)->Name("mutex/boost");

}  // namespace

BENCHMARK_MAIN();
