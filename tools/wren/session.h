// One stream of the library, held open for the length of a command. Every failure of the library
// becomes a Failure with its code and text, and the exit code that fits.
//
// Threads: a Session is used by one thread.
#ifndef WREN_SESSION_H
#define WREN_SESSION_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "settings.h"

namespace wren {

// An adapter's port as the library lists it.
struct Port {
    std::uint32_t key;  // selects the adapter, as its id does
    std::string name;
};

// Which of a stream's debug texts are shown on standard error.
enum class DebugText { warnings, all };

class Session {
   public:
    // Opens a stream, which looks for the adapters.
    explicit Session(DebugText shown);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    // The adapters that were found, in the order of their keys.
    std::vector<Port> ports() const;

    // Chooses an adapter by its key or id, and makes sure that it answers.
    void select(const std::string& keyOrId);
    // The selected adapter's name, such as "quill100".
    std::string deviceId() const;

    void set(const Setting& setting);
    // The value of a variable; where the adapter must be asked, its failure is thrown.
    std::string get(const std::string& name) const;

    // Reads or writes words.size() words, at most 65535, from an address on.
    void read(std::uint32_t address, std::span<std::uint16_t> words);
    void write(std::uint32_t address, std::span<const std::uint16_t> words);

    bool xapStopped() const;
    void command(const std::string& name);

   private:
    DebugText shown_;
    std::uint32_t stream_ = 0;
};

}  // namespace wren

#endif
