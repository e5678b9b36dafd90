// The attached adapters and the keys by which hosts select them.
//
// The adapter list gives each adapter a port number, its position in enumeration order; the
// selection table leads from a selection key (a port number, an adapter id of 32 or more, a number
// of the map file) to a port number. Both exist while the adapter layer is up and are built under
// its lock. They then stay as they are, so whoever holds a stream reads them without a lock.
#ifndef WRENLINK_QUILL_ADAPTER_LIST_H
#define WRENLINK_QUILL_ADAPTER_LIST_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "wrenlink/spifns.h"

namespace wrenlink {

// At most so many adapters are registered. Selection keys below this are port numbers, and the ones
// that hosts are shown; an adapter that reports an id below it goes by its port number.
inline constexpr std::uint32_t kPortCount = 32;
constexpr bool isPortNumber(std::uint32_t key) { return key < kPortCount; }

struct AdapterEntry {
    std::uint32_t id;        // as reported, or the port number: below 32, taken, or no answer
    std::string devicePath;  // opens the driver and names the adapter's mutex
};

using AdapterList = std::map<std::uint64_t, AdapterEntry>;      // by port number
using SelectionTable = std::map<std::uint32_t, std::uint64_t>;  // key to port number

// Builds list and table once, asking each adapter for its id (one exchange with each); an adapter
// that does not answer is registered all the same, and the failure stays the thread's last error.
// Does nothing when they exist.
void Quill_Enumerate();

// Destroys both.
void dropAdapters();

bool adapterListExists();
// The table, or null when it does not exist. Only the start of the adapter layer changes it.
SelectionTable* selectionTable();
// The adapter of a port number, or null.
const AdapterEntry* findAdapter(std::uint64_t port);

// Asks the adapter of a device path for its id; 0 when it does not answer.
std::uint32_t Quill_GetModuleId(const char* devicePath);

// Registers one adapter under the next port number.
void Quill_AddDevice(const char* devicePath);

// Calls the callback once per selection key below 32, in ascending order, with the key, the name
// "USB SPI (<adapter id>)" and the context. Without adapters, or a callback, it calls nothing.
void Quill_EnumeratePorts(spifns_port_callback callback, void* context);

}  // namespace wrenlink

#endif
