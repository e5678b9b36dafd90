#include "output.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>

#include "files.h"

namespace wren {

namespace {

Json objectOf(const Failure& failure) {
    return {{"code", failure.errorCode()},
            {"text", failure.what()},
            {"progress", failure.progress()},
            {"hint", failure.hint()}};
}

}  // namespace

Output::Output() : result_(std::make_unique<Json>(Json::object())) {}

Output::~Output() = default;

void Output::write(std::string_view text) {
    try {
        fmt::print(stdout, "{}", text);  // in any language, also on consoles with a code page
    } catch (const std::system_error&) {
        failWithErrno("write", "standard output");
    }
}

void Output::writeObject(const Failure* failure) {
    const ExitCode code = failure != nullptr ? failure->exitCode() : ExitCode::done;
    Json object{{"command", command_}, {"exit", static_cast<int>(code)}, {"result", *result_}};
    if (failure != nullptr) object["error"] = objectOf(*failure);
    // What the operating system says need not be UTF-8.
    write(object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
}

void Output::finishRound() {
    if (asJson_) writeObject(nullptr);
    *result_ = Json::object();
    if (std::fflush(stdout) != 0) failWithErrno("write", "standard output");
}

void Output::finish(const Failure* failure) {
    const bool ran = failure != nullptr || !command_.empty();  // not so when help was asked for
    if (asJson_ && ran) writeObject(failure);
    if (std::fflush(stdout) != 0) failWithErrno("write", "standard output");
}

}  // namespace wren
