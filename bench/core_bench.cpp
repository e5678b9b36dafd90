// What the library itself costs: its sources linked with an adapter that answers at once, in the
// same process. WRENLINK_RUNTIME_DIR tells where the shared objects go.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/interprocess/sync/named_mutex.hpp>
#include <string>

#include "bench/bare_exchange.h"
#include "bench/measure.h"
#include "bench/stream.h"
#include "platform/named_mutex.h"
#include "platform/os.h"
#include "quill/driver_exchange.h"

namespace wrenlink::bench {
namespace {

// For what uses kernel objects without a stream.
const bool hasNamespace = os::chooseNamespace();

// ---- One-word reads, so many in one sequence ---------------------------------------------------

// Each job is a million reads, in sequences of this length.
constexpr std::size_t kReads = 1'000'000;

class Reads {
   public:
    explicit Reads(std::size_t length)
        : length_(length), words_(length), target_(length), frame_(longestFrame()) {
        for (std::uint32_t i = 0; i < length; ++i)
            actions_.push_back(access(SpiAction::Read, i & 0xFFFF, 1, &words_[i]));
        // The first sequences take their memory from the system, until the allocator keeps so much.
        for (int i = 0; i < 2; ++i) {
            stream_.run(actions_);
            copyOnce();
        }
    }

    void run() {
        repeat([this] { stream_.run(actions_); });
    }

    // The exchanges of such sequences alone.
    void exchange() {
        repeat([this] {
            std::uint8_t reply[1040];
            for (std::size_t sent = 0; sent < length_; sent += kReadsInOne)
                Quill_Command(frame_.data(), reply, "/instant/0");
        });
    }

    // The least that gathering them takes: a copy of the records in memory of its own, and of the
    // words.
    void copy() {
        repeat([this] { copyOnce(); });
    }

   private:
    static constexpr std::uint32_t kReadsInOne = 126;

    static std::vector<std::uint8_t> longestFrame() {
        const Frame one = readFrame(0, 1);
        std::vector<std::uint8_t> bytes = one.bytes;
        for (std::uint32_t i = 1; i < kReadsInOne; ++i) {
            bytes.insert(bytes.end(), 2, 0);
            bytes.insert(bytes.end(), one.bytes.begin() + 5, one.bytes.end());
        }
        const std::size_t lengths[] = {bytes.size() - 4, one.replySize * kReadsInOne};
        for (std::size_t i = 0; i < 4; ++i)
            bytes[i] = static_cast<std::uint8_t>(lengths[i / 2] >> (8 * (i % 2)));
        return bytes;
    }

    template <class Sequence>
    void repeat(Sequence sequence) {
        for (std::size_t done = 0; done < kReads; done += length_) sequence();
    }

    void copyOnce() {
        Actions gathered(actions_);
        std::copy(words_.begin(), words_.end(), target_.begin());
        benchmark::DoNotOptimize(gathered.data());
        benchmark::DoNotOptimize(target_.data());
        benchmark::ClobberMemory();
    }

    const std::size_t length_;
    const Stream stream_;
    Words words_;
    Words target_;
    Actions actions_;
    std::vector<std::uint8_t> frame_;
};

// Of a read, outside the exchanges: in sequences of ten thousand, and of a million.
void records(benchmark::State& state) {
    Reads few(10'000);
    Reads many(kReads);
    measure(state, 1,
            {{"few", [&] { few.run(); }},
             {"few_exchanges", [&] { few.exchange(); }},
             {"few_copied", [&] { few.copy(); }},
             {"many", [&] { many.run(); }},
             {"many_exchanges", [&] { many.exchange(); }},
             {"many_copied", [&] { many.copy(); }}});
    auto& counters = state.counters;
    counters["few_outside"] = counters["few"] - counters["few_exchanges"];
    counters["many_outside"] = counters["many"] - counters["many_exchanges"];
    for (auto& [name, counter] : counters) counter.value /= kReads;
}
BENCHMARK(records);

// ---- Locks and reads of what is at hand --------------------------------------------------------

template <class Call>
std::function<void()> often(Call call) {
    return [call] {
        for (int i = 0; i < 1000; ++i) call();
    };
}

void mutex(benchmark::State& state) {
    using boost::interprocess::named_mutex;
    using boost::interprocess::open_or_create;
    const std::string file = makeLock("file");
    const std::string name = "wrenlink-bench-" + std::to_string(::getpid());
    const named_mutex lasting(open_or_create, name.c_str());
    measure(state, 1000,
            {{"ours",
              [] {
                  NamedMutex mutex("bench");
                  if (!mutex.lock()) std::abort();
                  mutex.unlock();
              }},
             {"file", [&] { ::close(::open(file.c_str(), O_RDWR | O_CLOEXEC)); }},
             {"boost", [&] {
                  named_mutex mutex(open_or_create, name.c_str());
                  mutex.lock();
                  mutex.unlock();
              }}});
    named_mutex::remove(name.c_str());
}
BENCHMARK(mutex);

void readLastError() {
    const char* text = nullptr;
    benchmark::DoNotOptimize(spifns_get_last_error(nullptr, &text));
    benchmark::DoNotOptimize(text);
}

void lastError(benchmark::State& state) {
    thread_local volatile int value = 0;
    spifns_stream_getvar(SPIFNS_NO_STREAM, "SPIPORT");  // fails
    measure(state, 100,
            {{"ours", often(readLastError)},
             {"thread_local", often([] { benchmark::DoNotOptimize(static_cast<int>(value)); })}});
}
BENCHMARK(lastError)->Name("last_error");

void readDelay(const Stream& stream) {
    benchmark::DoNotOptimize(spifns_stream_getvar(stream.id(), "SPI_DELAY"));
}

void cachedDelay(benchmark::State& state) {
    const Stream stream;
    stream.set("SPI_DELAY", "7");
    bool existed = false;
    os::FileMapping mapping = os::FileMapping::open("bench word", 2, existed);
    const auto* const word = static_cast<const volatile std::uint16_t*>(mapping.map(2));
    if (word == nullptr) return state.SkipWithError("cannot map");
    measure(
        state, 100,
        {{"ours", often([&] { readDelay(stream); })},
         {"mapped", often([=] { benchmark::DoNotOptimize(static_cast<std::uint16_t>(*word)); })}});
}
BENCHMARK(cachedDelay)->Name("cached_delay");

// Neither asks anything of the system: it would end a process that may not.
void systemCalls(benchmark::State& state) {
    for (auto _ : state) {
        if (::fork() == 0) {
            const Stream stream;
            stream.set("SPI_DELAY", "7");
            readLastError();
            ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT);
            often([&] { readDelay(stream); })();
            often(readLastError)();
            ::syscall(SYS_exit, 0);
        }
        int status = 0;
        ::wait(&status);
        state.counters["ended"] = status;
    }
}
BENCHMARK(systemCalls)->Name("system_calls");

// ---- Start -------------------------------------------------------------------------------------

std::function<void()> loadAndUnload(const char* module) {
    return [module] {
        void* const loaded = ::dlopen(module, RTLD_NOW | RTLD_LOCAL);
        if (loaded == nullptr || ::dlclose(loaded) != 0) std::abort();
    };
}

void load(benchmark::State& state) {
    measure(state, 10,
            {{"ours", loadAndUnload(WRENLINK_BENCH_LIBRARY)},
             {"libusb", loadAndUnload("libusb-1.0.so.0")}});
}
BENCHMARK(load);

}  // namespace
}  // namespace wrenlink::bench

BENCHMARK_MAIN();
