// One stream of the library, held open for the length of a command. Every failure of the library
// becomes a Failure with its code and text, the exit code that fits, and the next thing to try.
//
// Threads: a Session is used by one thread.
#ifndef WREN_SESSION_H
#define WREN_SESSION_H

#include <wrenlink/spifns.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "debug_text.h"
#include "settings.h"

namespace wren {

// The most words of an MGCMD command.
inline constexpr std::size_t kMostMgcmdWords = 508;

// An adapter's port as the library lists it.
struct Port {
    std::uint32_t key;  // selects the adapter, as its id does
    std::string name;
    std::uint32_t id;
};

// The port that a user's text names by its key, its id, or its device id; null when there is none.
const Port* portNamed(const std::vector<Port>& ports, std::string_view text);

// 0x109 is version 1.9.
std::string versionText(std::uint32_t version);

class Session {
   public:
    // Opens a stream, which looks for the adapters. Its debug text goes to the receiver.
    explicit Session(DebugText& receiver);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    // What tells its debug text from that of other sessions.
    void setMark(std::string mark) { mark_ = std::move(mark); }

    // Tells of a step.
    void step(std::string_view text) const { receiver_.step(mark_ + std::string(text)); }

    // The adapters that were found, in the order of their keys.
    std::vector<Port> ports() const;
    // Which adapters could be chosen, or why there are none.
    std::string choices() const;

    // Chooses an adapter by its key, its id, or its device id such as "quill100", and makes sure
    // that it answers.
    void select(const std::string& adapter);
    // The selected adapter's id and its name, such as 100 and "quill100".
    std::uint32_t id() const;
    std::string deviceId() const;
    // Its firmware, such as "1.9".
    std::string firmware() const;

    void set(const Setting& setting);
    // Makes settings in their order, none of them when a clock would be above the maximum; tells
    // the user of a clock that is not the one asked for.
    void setAll(std::span<const Setting> settings);
    // Throws when settings would drive a clock above the maximum.
    void requireClocks(std::span<const Setting> settings) const;
    // The value of a variable; where the adapter must be asked, its failure is thrown.
    std::string get(const std::string& name) const;

    // Reads words.size() words, at most 65535, from an address on.
    void read(std::uint32_t address, std::span<std::uint16_t> words);
    // Carries out any actions as one sequence.
    void submit(std::span<SpiAction> actions);

    bool xapStopped() const;
    void command(const std::string& name);
    void prepareMgcmd(std::uint16_t first, std::uint16_t second);
    // Overwrites the words, at most kMostMgcmdWords, with the answer. Unless strict, an answer by
    // which the adapter reports a failure is taken as any other.
    void mgcmd(std::span<std::uint16_t> words, bool strict);

   private:
    // Throws when the clock, which another host may have set, is above a maximum that was set.
    void heedMaximum() const;
    void check(int status) const;
    // For calls that report a failure in the last error alone, which must be clear before them.
    void checkLastError() const;
    [[noreturn]] void throwLastError() const;
    static void takeDebugText(const char* text, void* session);

    DebugText& receiver_;
    bool hasMaximum_ = false;
    std::string mark_;
    std::uint32_t stream_ = 0;
};

SpiAction memoryAction(std::uint32_t type, std::uint32_t address, std::uint16_t* words,
                       std::size_t count) noexcept;
// Points into the setting.
SpiAction settingAction(const Setting& setting) noexcept;

}  // namespace wren

#endif
