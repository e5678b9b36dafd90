// Sequences of any records: the frames carry what the records ask for, word by word and in their
// order; reads give what the chip holds, and a record that is refused ends the sequence.
#include <algorithm>
#include <cstring>
#include <deque>
#include <tuple>
#include <utility>

#include "fuzz/harness.h"
#include "sim/model/wire.h"
#include "tests/exports/host.h"
#include "tests/schedules/machine.h"

namespace wrenlink::fuzz {
namespace {

using test::Failure;
using test::Words;

constexpr std::uint16_t kSentinel = 0x5A5A;
constexpr std::uint16_t kFirmwares[] = {0x0109, 0x0108, 0x0004, 0x0200};
constexpr std::size_t kMostWords = 20000;

// The words that travelled, in their order: how, where, what, and with which command bits.
using Traffic =
    std::vector<std::tuple<quillsim::Code, std::uint16_t, std::uint16_t, std::uint16_t>>;

// The adapter of the machine, at power-on, and what it is asked.
class Wire {
   public:
    explicit Wire(std::uint16_t firmware) {
        test::machine().restart();
        renew(test::machine().adapter);
        test::machine().adapter.settings.firmware = firmware;
        test::machine().hear = [this](quillsim::Bytes frame, bool good) {
            allGood = allGood && good;
            hear(frame);
        };
    }

    bool allGood = true;  // every frame so far is well formed
    Traffic traffic;

   private:
    void hear(quillsim::Bytes frame) {
        const quillsim::Command* command = quillsim::findCommand(quillsim::codeOf(frame));
        if (command == nullptr || command->shape != quillsim::Shape::entry) return;
        quillsim::BatchWalk walk(frame.subspan(quillsim::kCodeAt));
        for (quillsim::Entry entry; walk.next(entry);) {
            if (entry.code == quillsim::Code::commandBits) {
                bits_[entry.first] = entry.second;
                continue;
            }
            const bool writes = entry.code == quillsim::Code::write;
            for (std::size_t i = 0; i < entry.second; ++i)
                traffic.emplace_back(entry.code, entry.first + i,
                                     writes ? quillsim::loadBig(entry.words, 2 * i) : 0,
                                     bits_[writes ? 1 : 0]);
        }
    }

    std::uint16_t bits_[2] = {};
};

struct Setting {
    const char* name;
    const char* value;
    Failure failure;
    int readBits = -1;  // those that it sets
    int writeBits = -1;
};

const Failure kInvalid = {1, 0, "Invalid variable or value"};
const Setting kSettings[] = {
    {"SPI_DELAY", "7", {}},
    {"spiclock", "1000", {}},
    {"SPIMUL", "3", {}},
    {"SPIMUL", "17", {1, 0, "SPIMUL is out of range (valid value: 0 - 16)"}},
    {"QUILLMODE", "JTAG", {}},
    {"SPIPORT", "100", {}},
    {"SPIPORT", "5", {514, 0, "Couldn't find device with id (5)"}},
    {"SPIMAXCLOCK", "2000", {}},
    {"NOTHING", "1", {}},
    {nullptr, "1", kInvalid},
    {"SPIMUL", nullptr, kInvalid},
    {"SPICMDBITS", "0x5", {}, 5, 5},
    {"spicmdreadbits", "65542", {}, 6, -1},
    {"SPICMDWRITEBITS", "-2", {}, -1, 0xFFFE},  // 0xFFFF stands for unknown bits
    {"SPICMDBITS", nullptr, kInvalid, 0, 0},
};

bool setsBits(const Setting& setting) { return setting.readBits >= 0 || setting.writeBits >= 0; }

// A record, the host's buffer for it, and what is expected of it.
struct Record {
    SpiAction action{};
    const Setting* setting = nullptr;
    Words buffer;
    Words expected;
};

// Makes records as the input says.
class Host {
   public:
    explicit Host(FuzzedDataProvider& input) : input_(input) {}

    void addRecord() {
        Record& record = records.emplace_back();
        const auto kind = input_.ConsumeIntegralInRange(0, 8);
        if (kind < 6) return makeAccess(record, kind % 2 == 0 ? SPIFNS_READ : SPIFNS_WRITE);
        if (kind == 6) {
            record.action.type = std::max(3U, input_.ConsumeIntegral<std::uint32_t>());
            return;
        }
        record.setting =
            &kSettings[input_.ConsumeIntegralInRange<std::size_t>(0, std::size(kSettings) - 1)];
        record.action = test::setting(record.setting->name, record.setting->value);
    }

    std::deque<Record> records;

   private:
    std::uint32_t number() {
        switch (input_.ConsumeIntegralInRange(0, 3)) {
            case 0:
                return input_.ConsumeIntegralInRange(0U, 20U);
            case 1:
                return 504 * input_.ConsumeIntegralInRange(1U, 3U) +
                       input_.ConsumeIntegralInRange(0U, 6U) - 3;
            case 2:
                return 0xFFF0 + input_.ConsumeIntegralInRange(0U, 32U);
            default:
                return input_.ConsumeIntegral<std::uint32_t>();
        }
    }

    void makeAccess(Record& record, std::uint32_t type) {
        record.action.type = type;
        auto& memory = record.action.u.memory;
        memory.address = number();
        memory.length = number();
        if (memory.length > 0xFFFF || input_.ConsumeIntegralInRange(0, 15) == 0) return;
        memory.length = std::min<std::uint32_t>(memory.length, left_);
        left_ -= memory.length;
        record.buffer = type == SPIFNS_WRITE
                            ? test::countingWords(memory.length, static_cast<std::uint16_t>(left_))
                            : Words(memory.length, kSentinel);
        record.expected = record.buffer;
        memory.data = record.buffer.data();
    }

    FuzzedDataProvider& input_;
    std::uint32_t left_ = kMostWords;
};

// What the records should do.
class Expectation {
   public:
    explicit Expectation(std::uint16_t firmware) : firmware_(firmware) {}

    Failure run(std::deque<Record>& records) {
        for (Record& record : records) {
            Failure failure = add(record);
            if (failure.code != 0) return failure;
        }
        flush();
        return {};
    }

    Traffic traffic;

   private:
    struct Pending {
        Record* record;
        std::uint16_t bits;
    };

    Failure add(Record& record) {
        if (record.setting != nullptr) return set(*record.setting);
        if (record.action.type > SPIFNS_WRITE) return {};
        const auto& memory = record.action.u.memory;
        if (memory.address > 0xFFFF) return {265, memory.address, "Invalid address"};
        if (memory.length > 0xFFFF) return {266, 0, "Read or write too long"};
        if (memory.data == nullptr && memory.length > 0) return kInvalid;
        const bool sent = firmware_ >= 0x0109;
        const std::uint16_t bits = bits_[record.action.type == SPIFNS_WRITE ? 1 : 0];
        pending_.push_back({&record, sent ? bits : std::uint16_t{0}});
        return {};
    }

    Failure set(const Setting& setting) {
        if (!setsBits(setting)) {
            flush();
            return setting.failure;
        }
        if (firmware_ >> 8 == 1 && firmware_ < 0x0109)
            return {520, 0, "Unable to set command bits, USB-SPI firmware too old"};
        if (setting.failure.code != 0) return setting.failure;
        if (setting.readBits >= 0) bits_[0] = static_cast<std::uint16_t>(setting.readBits);
        if (setting.writeBits >= 0) bits_[1] = static_cast<std::uint16_t>(setting.writeBits);
        return {};
    }

    void flush() {
        for (const Pending& pending : pending_) access(*pending.record, pending.bits);
        pending_.clear();
    }

    void access(Record& record, std::uint16_t bits) {
        const bool writes = record.action.type == SPIFNS_WRITE;
        for (std::uint32_t i = 0; i < record.expected.size(); ++i) {
            const std::uint32_t address = (record.action.u.memory.address + i) & 0xFFFF;
            std::uint16_t& word = record.expected[i];
            writes ? memory_[address] = word : word = memory_[address];
            traffic.emplace_back(writes ? quillsim::Code::write : quillsim::Code::read, address,
                                 writes ? word : 0, bits);
        }
    }

    std::uint16_t firmware_;
    std::uint16_t bits_[2] = {};
    std::vector<std::uint16_t> memory_ = std::vector<std::uint16_t>(0x10000);
    std::vector<Pending> pending_;
};

// Hands the records over in an array at any address.
int submit(const test::Stream& stream, const std::deque<Record>& records, std::size_t offset) {
    Bytes array(offset + records.size() * sizeof(SpiAction));
    for (std::size_t i = 0; i < records.size(); ++i)
        std::memcpy(&array[offset + i * sizeof(SpiAction)], &records[i].action, sizeof(SpiAction));
    return spifns_stream_sequence(stream.id(), reinterpret_cast<SpiAction*>(array.data() + offset),
                                  static_cast<std::uint32_t>(records.size()));
}

}  // namespace

void run(FuzzedDataProvider& input) {
    const std::uint16_t firmware = input.PickValueInArray(kFirmwares);
    const Wire wire(firmware);
    const test::Stream stream("0");
    const auto offset = input.ConsumeIntegralInRange<std::size_t>(0, 7);
    Host host(input);
    while (input.remaining_bytes() > 0 && host.records.size() < 40) host.addRecord();

    Expectation expectation(firmware);
    const test::Failure expected = expectation.run(host.records);
    const int status = submit(stream, host.records, offset);
    require(test::outcome(status) == expected, "the sequence ends as it should");
    require(wire.allGood, "every frame is well formed");
    require(wire.traffic == expectation.traffic, "the frames carry what the records ask for");
    for (const Record& record : host.records)
        require(record.buffer == record.expected, "reads give what the chip holds");
}

}  // namespace wrenlink::fuzz
