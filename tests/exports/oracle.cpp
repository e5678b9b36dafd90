#include "tests/exports/oracle.h"

#include <algorithm>

namespace wrenlink::test {
namespace {

constexpr std::size_t kCodeAt = 5;

unsigned big(const Bytes& bytes, std::size_t at) {
    return unsigned{bytes[at]} << 8 | bytes[at + 1];
}
unsigned little(const Bytes& bytes, std::size_t at) {
    return unsigned{bytes[at + 1]} << 8 | bytes[at];
}

// The reply as the library's buffer has it: never more than was asked for; where bytes are missing,
// zeros for a batch and what was sent for a single command.
Bytes seenReply(const Exchange& exchange) {
    Bytes seen;
    if (!exchange.isBatch()) seen.assign(exchange.frame.begin() + kCodeAt, exchange.frame.end());
    seen.resize(little(exchange.frame, 2));
    std::copy_n(exchange.reply.begin(), std::min(seen.size(), exchange.reply.size()), seen.begin());
    return seen;
}

// Single commands whose operations say more than their replies: what they append to an exchange's
// failure, and what they show of the command's field.
constexpr struct Command {
    unsigned code;
    const char* appended;
    const char* text;
} kCommands[] = {
    {0x0300, ": Unable to set delays", "Quill Set Delays "},
    {0x0500, ": Unable to get delays", ""},
    {0x0600, ": Unable to enable DFU mode", ""},
    {0x0E00, ": Unable to set multipled device", "Quill mul dev "},
    {0x4000, ": Unable to initialise MGCMDs", ""},
    {0x4100, ": MGCMD cmd failed", ""},
};

void addWords(Told& told, const Bytes& bytes, std::size_t at, std::size_t count) {
    for (; count > 0; --count, at += 2) told.words.push_back(static_cast<int>(big(bytes, at)));
}

void addMarks(Told& told, int mark, std::size_t count) {
    told.words.insert(told.words.end(), count, mark);
}

void tellBatch(Told& told, const Exchange& exchange) {
    const Bytes& frame = exchange.frame;
    const Bytes reply = seenReply(exchange);
    bool failed = exchange.failure.code != 0;
    if (failed) {
        told.texts.push_back("USB-SPI device fail - " + exchange.failure.text);
        told.failure.text += ": Unable to send sequence";
    }
    std::size_t part = 0;
    for (std::size_t entry = kCodeAt; entry < frame.size(); entry += 8) {
        const unsigned code = big(frame, entry);
        const unsigned count = big(frame, entry + 4);
        if (code == 0x0200) entry += std::size_t{2} * count;
        if (code != 0x0100) continue;
        if (failed) {
            addMarks(told, kUntouched, count);
            continue;
        }
        const unsigned status = big(reply, part);
        failed = status != 0x0100;
        if (failed) {
            told.failure = {517, little(reply, part + 2), "Read failed on USB-SPI"};
            addMarks(told, kAnything, count);
        } else {
            addWords(told, reply, part + 6, count);
        }
        if (status == 0x0101) told.texts.emplace_back("Read failed on quill");
        part += 6 + std::size_t{2} * count;
    }
}

void tellXapState(Told& told, const Bytes& reply, bool failed) {
    if (!failed && big(reply, 0) != 0x0400)
        told.failure = {517, 0, "xap_stopped failed on USB-SPI device"};
    const bool known = told.failure.code == 0;
    told.words.push_back(known ? (big(reply, 2) != 0 ? 1 : 0) : -1);
}

void tellMgcmd(Told& told, const Bytes& reply, bool failed, std::size_t count) {
    if (!failed && big(reply, 0) == 0x4101) {
        told.failure = {517, 0, "MGCMD failed on USB-SPI device"};
        told.texts.emplace_back("MGCMD failed on quill");
    }
    told.failure.code == 0 ? addWords(told, reply, 4, count) : addMarks(told, kUntouched, count);
}

void tellSingle(Told& told, const Exchange& exchange) {
    const bool failed = exchange.failure.code != 0;
    const Bytes reply = seenReply(exchange);
    const std::size_t field = exchange.frame.size() > 7 ? big(exchange.frame, 7) : 0;
    const unsigned code = exchange.code();
    for (const Command& command : kCommands) {
        if (command.code != code) continue;
        if (*command.text != '\0') told.texts.push_back(command.text + std::to_string(field));
        if (failed) told.failure.text += command.appended;
    }
    if (code == 0x0500 && failed) told.texts.emplace_back("Quill Get Delays command Failed");
    if (code == 0x0400) tellXapState(told, reply, failed);
    if (code == 0x4100) tellMgcmd(told, reply, failed, field);
    if (code == 0x0500 || code == 0x0800)
        failed ? told.words.push_back(0) : addWords(told, reply, 2, 1);
}

template <class List>
void append(List& list, const List& more) {
    list.insert(list.end(), more.begin(), more.end());
}

}  // namespace

bool Told::agreesWith(const std::vector<int>& found, int untouched) const {
    for (std::size_t i = 0; i < std::max(found.size(), words.size()); ++i) {
        const int word = i < words.size() ? words[i] : kUntouched;
        if (word == kAnything) continue;
        if (i >= found.size() || found[i] != (word == kUntouched ? untouched : word)) return false;
    }
    return true;
}

Told tell(const std::vector<Exchange>& exchanges) {
    Told all;
    for (const Exchange& exchange : exchanges) {
        Told told = {exchange.failure, {}, {}};
        exchange.isBatch() ? tellBatch(told, exchange) : tellSingle(told, exchange);
        append(all.words, told.words);
        append(all.texts, told.texts);
        if (told.failure.code != 0) all.failure = told.failure;
    }
    return all;
}

}  // namespace wrenlink::test
