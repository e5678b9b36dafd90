#include "quill/adapter_list.h"

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

#include "diag/result_sentry.h"
#include "platform/os.h"
#include "quill/adapter_layer.h"
#include "quill/driver_exchange.h"
#include "quill/frame.h"
#include "quill/host_call.h"

namespace wrenlink {
namespace {

struct Tables {
    AdapterList adapters;
    SelectionTable selection;
};

// Not owned by a static object: a host thread may still work while the process exits.
Tables* tables = nullptr;

struct Port {
    std::uint32_t key;
    std::uint32_t adapterId;
};

std::vector<Port> visiblePorts() {
    std::vector<Port> ports;
    const LocalLockGuard guard(
        adapterLayerLock());  // keeps the tables while they are read without a stream
    if (tables == nullptr) return ports;
    for (const auto& [key, port] : tables->selection) {
        if (!isPortNumber(key)) break;
        const AdapterEntry* adapter = findAdapter(port);
        if (adapter != nullptr) ports.push_back({key, adapter->id});
    }
    return ports;
}

}  // namespace

void Quill_Enumerate() {
    const Trace trace;
    if (tables != nullptr) return;
    auto made = std::make_unique<Tables>();
    std::vector<std::string> paths;
    if (os::chooseNamespace()) paths = os::presentAdapters(kPortCount);
    tables = made.release();
    for (const std::string& path : paths) Quill_AddDevice(path.c_str());
}

void dropAdapters() { delete std::exchange(tables, nullptr); }

bool adapterListExists() { return tables != nullptr; }

SelectionTable* selectionTable() { return tables == nullptr ? nullptr : &tables->selection; }

const AdapterEntry* findAdapter(std::uint64_t port) {
    if (tables == nullptr) return nullptr;
    const auto found = tables->adapters.find(port);
    return found == tables->adapters.end() ? nullptr : &found->second;
}

std::uint32_t Quill_GetModuleId(const char* devicePath) {
    const Trace trace;
    CommandFrame frame(kGetAdapterId);
    if (!Quill_Command(frame.bytes(), frame.bytes(), devicePath)) return 0;
    return std::uint32_t{frame.replyField(0)} << 16 | frame.replyField(1);
}

void Quill_AddDevice(const char* devicePath) {
    std::uint32_t id = Quill_GetModuleId(devicePath);
    const auto port = static_cast<std::uint32_t>(tables->adapters.size());
    if (isPortNumber(id) || tables->selection.contains(id)) id = port;
    tables->selection.try_emplace(id, port);
    tables->selection.try_emplace(port, port);
    tables->adapters.try_emplace(port, AdapterEntry{id, devicePath});
}

void Quill_EnumeratePorts(spifns_port_callback callback, void* context) {
    const Trace trace;
    if (callback == nullptr) return;
    for (const Port& port : visiblePorts()) {
        char name[32];
        std::snprintf(name, sizeof name, "USB SPI (%" PRIu32 ")", port.adapterId);
        callHost(callback, port.key, name, context);
    }
}

}  // namespace wrenlink
