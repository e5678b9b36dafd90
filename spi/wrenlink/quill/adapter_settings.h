// What an adapter holds, as all its hosts know it: its delay and its command bits. They stand in
// two regions that the hosts share, so that nobody sends what the adapter has already.
//
// One rule keeps them true: whoever changes, reads or loses a setting marks it unknown, exchanges
// and records it while it holds the adapter's lock. So the order of the records is the order of the
// exchanges, and a host that dies in between leaves "unknown". Which settings an exchange touches
// is read from its frame, here and nowhere else, so that no operation has to think of it.
//
// Looking needs no lock: it shows what the adapter held a moment ago, or that nobody knows.
#ifndef WRENLINK_QUILL_ADAPTER_SETTINGS_H
#define WRENLINK_QUILL_ADAPTER_SETTINGS_H

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/shared_memory.h"

namespace wrenlink {

inline constexpr std::uint16_t kUnknown = 0xFFFF;
// Fills a new region, so that all its fields are unknown.
inline constexpr std::byte kUnknownByte{0xFF};

// The records: a format shared between processes, of little-endian 16-bit fields, each read and
// written whole.
static_assert(std::endian::native == std::endian::little, "shared records are little-endian");

// The delay that the adapter was last set to or last reported.
struct DelayCache {
    static constexpr const char* kRegionName = "quilldelays%lu";
    std::uint16_t delay;
};
static_assert(sizeof(DelayCache) == 2);

// The command bits that the adapter was last given.
union CmdBitsCache {
    static constexpr const char* kRegionName = "quillcmdbits%lu";
    std::uint16_t half[2];  // read bits, write bits
    std::uint32_t both;
};
static_assert(sizeof(CmdBitsCache) == 4);

template <class Field>
Field loadField(Field& field) {
    return std::atomic_ref(field).load(std::memory_order_relaxed);
}

template <class Field>
void storeField(Field& field, Field value) {
    std::atomic_ref(field).store(value, std::memory_order_relaxed);
}

// The settings of one adapter. Any thread may look; changing them is the exchange's.
class AdapterSettings {
   public:
    enum Setting : std::size_t { delay, readBits, writeBits };
    static constexpr std::size_t kCount = 3;

    // Opens the regions of an adapter and maps them at once: from then on every process finds what
    // the first one of them put there. A region that cannot be mapped is tried again at each use.
    // Throws std::bad_alloc.
    explicit AdapterSettings(std::uint32_t adapterId);

    // The setting, perhaps kUnknown; nothing when its region cannot be mapped.
    std::optional<std::uint16_t> look(Setting setting);
    // Marks all settings unknown. Needs no lock: at worst somebody sends what the adapter has.
    void forget();

   private:
    friend class SettingsExchange;
    friend void Quill_Stream_SetCmdBitsCache(AdapterSettings& settings, std::uint16_t bits,
                                             bool forWrites);

    DelayCache* delays();
    CmdBitsCache* cmdBits();
    std::uint16_t* field(Setting setting);
    void put(Setting setting, std::uint16_t value);

    SharedMemory delayRegion_;
    SharedMemory cmdBitsRegion_;
};

// What one exchange does to the settings of its adapter. It is made and it ends while the exchange
// holds the adapter's lock. Unless succeeded() is called all settings are forgotten at the end: the
// adapter may have been pulled out, and nobody knows what it did.
class SettingsExchange {
   public:
    // Marks what the request touches. Without settings, as for an adapter that has not told its id
    // yet, it does nothing.
    SettingsExchange(AdapterSettings* settings, const std::uint8_t* request);
    SettingsExchange(const SettingsExchange&) = delete;
    SettingsExchange& operator=(const SettingsExchange&) = delete;
    ~SettingsExchange();

    // Records what the adapter holds now.
    void succeeded(const std::uint8_t* replyBase);

   private:
    void mark(const std::uint8_t* request);
    void touch(AdapterSettings::Setting setting, std::uint16_t value);
    void touchBits(const std::uint8_t* request);

    AdapterSettings* const settings_;
    std::array<std::optional<std::uint16_t>, AdapterSettings::kCount> touched_;
    bool repliesDelay_ = false;
    bool succeeded_ = false;
};

}  // namespace wrenlink

#endif
