#include "quill/adapter_settings.h"

#include <cstdio>
#include <string>

#include "diag/result_sentry.h"
#include "quill/frame.h"

namespace wrenlink {
namespace {

template <class Cache>
std::string regionName(std::uint32_t adapterId) {
    char name[32];
    std::snprintf(name, sizeof name, Cache::kRegionName, static_cast<unsigned long>(adapterId));
    return name;
}

}  // namespace

AdapterSettings::AdapterSettings(std::uint32_t adapterId)
    : delayRegion_(regionName<DelayCache>(adapterId), sizeof(DelayCache), kUnknownByte),
      cmdBitsRegion_(regionName<CmdBitsCache>(adapterId), sizeof(CmdBitsCache), kUnknownByte) {
    delays();
    cmdBits();
}

DelayCache* AdapterSettings::delays() { return reinterpret_cast<DelayCache*>(delayRegion_.view()); }

CmdBitsCache* AdapterSettings::cmdBits() {
    return reinterpret_cast<CmdBitsCache*>(cmdBitsRegion_.view());
}

std::uint16_t* AdapterSettings::field(Setting setting) {
    if (setting == delay) {
        DelayCache* const cache = delays();
        return cache == nullptr ? nullptr : &cache->delay;
    }
    CmdBitsCache* const cache = cmdBits();
    return cache == nullptr ? nullptr : &cache->half[setting == writeBits ? 1 : 0];
}

void AdapterSettings::put(Setting setting, std::uint16_t value) {
    if (std::uint16_t* const found = field(setting)) storeField(*found, value);
}

std::optional<std::uint16_t> AdapterSettings::look(Setting setting) {
    std::uint16_t* const found = field(setting);
    if (found == nullptr) return std::nullopt;
    return loadField(*found);
}

void AdapterSettings::forget() {
    put(delay, kUnknown);
    if (CmdBitsCache* const cache = cmdBits()) storeField(cache->both, std::uint32_t{0xFFFFFFFF});
}

// Records the command bits that the adapter now has, for writes or for reads.
void Quill_Stream_SetCmdBitsCache(AdapterSettings& settings, std::uint16_t bits, bool forWrites) {
    const Trace trace;
    settings.put(forWrites ? AdapterSettings::writeBits : AdapterSettings::readBits, bits);
}

SettingsExchange::SettingsExchange(AdapterSettings* settings, const std::uint8_t* request)
    : settings_(settings) {
    if (settings != nullptr) mark(request);
}

void SettingsExchange::mark(const std::uint8_t* request) {
    switch (big16(request + kCodeOffset)) {
        case kSetDelay.code:
            return touch(AdapterSettings::delay, big16(request + kPayloadOffset));
        case kGetDelay.code:
            repliesDelay_ = true;
            return touch(AdapterSettings::delay, kUnknown);
        case kSetInterfaceMode.code:
            return settings_->forget();
        case kReadWords:
        case kWriteWords:
        case kSetCommandBits:
            return touchBits(request);
        default:
            return;
    }
}

void SettingsExchange::touch(AdapterSettings::Setting setting, std::uint16_t value) {
    touched_[setting] = value;
    settings_->put(setting, kUnknown);
}

// A batch command may set bits several times; the last ones stay.
void SettingsExchange::touchBits(const std::uint8_t* request) {
    const std::uint8_t* const end =
        request + kReservedOffset + little16(request + kRequestLengthOffset);
    for (const std::uint8_t* entry = request + kCodeOffset; entry < end; entry = nextEntry(entry)) {
        if (big16(entry) != kSetCommandBits) continue;
        const bool forWrites = big16(entry + 2) != 0;
        touch(forWrites ? AdapterSettings::writeBits : AdapterSettings::readBits, big16(entry + 4));
    }
}

void SettingsExchange::succeeded(const std::uint8_t* replyBase) {
    succeeded_ = true;
    if (settings_ == nullptr) return;
    const auto& [delay, readBits, writeBits] = touched_;
    if (repliesDelay_)
        settings_->put(AdapterSettings::delay, big16(replyBase + kPayloadOffset));
    else if (delay)
        settings_->put(AdapterSettings::delay, *delay);
    if (readBits) Quill_Stream_SetCmdBitsCache(*settings_, *readBits, false);
    if (writeBits) Quill_Stream_SetCmdBitsCache(*settings_, *writeBits, true);
}

SettingsExchange::~SettingsExchange() {
    if (!succeeded_ && settings_ != nullptr) settings_->forget();
}

}  // namespace wrenlink
