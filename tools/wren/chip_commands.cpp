#include <fmt/ranges.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"

namespace wren {

Work sendCommand(const std::string& name) {
    return briefly([command = chipCommand(name)](Adapter& adapter) {
        adapter.session.command(command);
        adapter.report.say("{} done\n", command);
        adapter.report.result()["name"] = command;
    });
}

Work sendMgcmd(const MgcmdRequest& request) {
    static constexpr std::size_t kWordsPerLine = 8;
    if (request.words.size() > kMostMgcmdWords)
        throw Failure(ExitCode::usage, fmt::format("{}, and an MGCMD command has at most {}",
                                                   countOf(request.words.size()), kMostMgcmdWords));
    return [request](Adapter& adapter) {
        if (!request.preparation.empty())
            adapter.session.prepareMgcmd(request.preparation[0], request.preparation[1]);
        std::vector<std::uint16_t> words = request.words;
        try {
            adapter.session.mgcmd(words, request.strict);
        } catch (Failure& failure) {
            if (failure.errorCode() == SPIFNS_ERROR_ADAPTER)
                failure.setHint("prepare the adapter with --init, or look with --any-answer");
            throw;
        }
        adapter.report.result()["answer"] = words;
        for (std::size_t at = 0; at < words.size(); at += kWordsPerLine) {
            const auto line =
                std::span(words).subspan(at, std::min(kWordsPerLine, words.size() - at));
            adapter.report.print("0x{:04x}\n", fmt::join(line, " 0x"));
        }
    };
}

}  // namespace wren
