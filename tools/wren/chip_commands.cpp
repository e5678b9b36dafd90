#include <fmt/ranges.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"

namespace wren {

void sendCommand(Context& context, const std::string& name) {
    const std::string command = chipCommand(name);
    Connected session(context);
    session.command(command);
    context.output.print("{} done\n", command);
    context.output.result()["name"] = command;
}

void sendMgcmd(Context& context, const MgcmdRequest& request) {
    constexpr std::size_t kWordsPerLine = 8;
    if (request.words.size() > kMostMgcmdWords)
        throw Failure(ExitCode::usage, fmt::format("{}, and an MGCMD command has at most {}",
                                                   countOf(request.words.size()), kMostMgcmdWords));
    Connected session(context);
    if (!request.preparation.empty())
        session.prepareMgcmd(request.preparation[0], request.preparation[1]);
    std::vector<std::uint16_t> words = request.words;
    try {
        session.mgcmd(words, request.strict);
    } catch (Failure& failure) {
        if (failure.errorCode() == SPIFNS_ERROR_ADAPTER)
            failure.setHint("prepare the adapter with --init, or look with --any-answer");
        throw;
    }
    context.output.result()["answer"] = words;
    for (std::size_t at = 0; at < words.size(); at += kWordsPerLine) {
        const auto line = std::span(words).subspan(at, std::min(kWordsPerLine, words.size() - at));
        context.output.print("0x{:04x}\n", fmt::join(line, " 0x"));
    }
}

}  // namespace wren
