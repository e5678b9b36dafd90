// The simulator's own parsers: requests of a hostile host and lines of its control language. What
// is refused changes nothing, and what is carried out has the reply that was asked for.
#include <algorithm>

#include "fuzz/harness.h"
#include "sim/model/command.h"
#include "sim/text_sink.h"

namespace wrenlink::fuzz {
namespace {

using quillsim::Adapter;

bool control(Adapter& adapter, std::string_view line, std::string& answer) {
    Adapter* const adapters[] = {&adapter};
    quillsim::TextWriter writer = quillsim::writerTo(answer);
    return quillsim::runCommand({adapters, [](void*, std::size_t, bool) { return true; }, nullptr},
                                line, writer);
}

// All that a request may change but the memory.
std::string stateOf(Adapter& adapter) {
    std::string state;
    control(adapter, "state 0", state);
    return state;
}

void tryLine(Adapter& adapter, FuzzedDataProvider& input) {
    std::string answer;
    const std::string before = stateOf(adapter);
    const bool done = control(adapter, input.ConsumeRandomLengthString(200), answer);
    const std::size_t last = answer.rfind('\n', answer.size() - 2) + 1;
    require(done ? answer.substr(last) == "ok\n" : answer.compare(last, 7, "error: ") == 0,
            "an answer ends with what became of the line");
    require(done || stateOf(adapter) == before, "a line that is refused changes nothing");
}

// A frame with right lengths for a start, or with none.
Bytes frame(FuzzedDataProvider& input) {
    const bool lengths = input.ConsumeBool();
    const auto replyLength = input.ConsumeIntegralInRange<std::size_t>(0, 1100);
    const std::string body = input.ConsumeRandomLengthString(1100);
    Bytes bytes(body.begin(), body.end());
    if (!lengths) return bytes;
    const std::size_t requestLength = bytes.size() + 1;
    const Bytes head = {
        static_cast<std::uint8_t>(requestLength), static_cast<std::uint8_t>(requestLength >> 8),
        static_cast<std::uint8_t>(replyLength), static_cast<std::uint8_t>(replyLength >> 8), 0};
    bytes.insert(bytes.begin(), head.begin(), head.end());
    return bytes;
}

void tryFrame(Adapter& adapter, FuzzedDataProvider& input) {
    const std::string before = stateOf(adapter);
    const bool disturbed = !adapter.faults.armed().empty();
    const Bytes request = frame(input);
    const auto capacity = input.ConsumeIntegralInRange<std::size_t>(0, 1100);
    const bool good =
        quillsim::judge(request, adapter.settings.firmware) == quillsim::Verdict::good;
    Bytes room(quillsim::kReplyRoom);
    const std::size_t replied =
        adapter
            .handle({quillsim::kControlCode, static_cast<std::uint32_t>(capacity), request}, room)
            .replySize;
    std::string line;
    require(control(adapter, "log 0 " + std::to_string(adapter.log.last()), line),
            "the log shows every request");
    if (disturbed) return;
    require(good || (replied == 0 && stateOf(adapter) == before),
            "a request that is refused changes nothing");
    const std::size_t asked = good ? quillsim::loadLittle(request, 2) : 0;
    require(replied == std::min(asked, capacity), "a reply is as long as it was asked for");
}

}  // namespace

void run(FuzzedDataProvider& input) {
    static Adapter adapter(100, EINVAL);
    renew(adapter);
    while (input.remaining_bytes() > 0)
        input.ConsumeIntegralInRange(0, 2) == 0 ? tryLine(adapter, input)
                                                : tryFrame(adapter, input);
}

}  // namespace wrenlink::fuzz
