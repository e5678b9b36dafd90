#include "output.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "files.h"
#include "terminal.h"

namespace wren {

namespace {

int exitCodeOf(const std::optional<Failure>& failure) {
    return static_cast<int>(failure ? failure->exitCode() : ExitCode::done);
}

void addError(Json& object, const std::optional<Failure>& failure) {
    if (!failure) return;
    Json& error = object["error"] = {{"code", failure->errorCode()},
                                     {"text", failure->what()},
                                     {"progress", failure->progress()},
                                     {"hint", failure->hint()}};
    if (failure->words().empty()) return;
    error["address"] = failure->words().front().address;
    for (const Region& words : failure->words())
        if (words.count > 0)
            error["words"].push_back({{"address", words.address}, {"count", words.count}});
}

void write(std::string_view text) {
    if (!terminal::put(stdout, text)) failWithErrno("write", "standard output");
}

void flush() {
    if (std::fflush(stdout) != 0) failWithErrno("write", "standard output");
}

}  // namespace

Report::Report(bool oneOfSeveral)
    : oneOfSeveral_(oneOfSeveral), result_(std::make_unique<Json>(Json::object())) {}

Report::~Report() = default;

void Report::setId(std::uint64_t id) {
    id_ = id;
    adapter_ = std::to_string(id);
    (*result_)["id"] = id;
}

void Report::setPlace(std::span<const Segment> segments) {
    (*result_)["address"] = segments.front().address;
    (*result_)["count"] = wordCount(segments);
    if (segments.size() > 1) (*result_)["pieces"] = segments.size();
}

void Report::setMemory(std::span<const Segment> segments) {
    setPlace(segments);
    (*result_)["crc32"] = crcOf(segments);
}

std::string Report::name() const { return fmt::format("adapter {}: ", adapter_); }

void Report::add(std::string_view lines) {
    const std::string before = mark();
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size() - 1) + 1;
        text_.append(before).append(lines.substr(0, end));
        lines.remove_prefix(end);
    }
}

void Report::startAnew() {
    text_.clear();
    *result_ = Json::object();
    if (id_) (*result_)["id"] = *id_;
}

Json Output::objectFor(const std::optional<Failure>& failure) const {
    Json object{{"command", command_}, {"exit", static_cast<int>(worstOf(reports_, failure))}};
    if (several_) {
        object["adapters"] = Json::array();
        for (const Report& report : reports_) {
            Json& entry = object["adapters"].emplace_back(
                Json{{"adapter", report.adapter()}, {"exit", static_cast<int>(report.exitCode())}});
            entry["result"] = *report.result_;
            addError(entry, report.failure());
        }
    } else {
        object["result"] = Json::object();
        for (const Report& report : reports_) {
            object["result"] = *report.result_;
            addError(object, report.failure());
        }
    }
    addError(object, failure);
    return object;
}

void Output::writeReports(const std::optional<Failure>& failure) {
    if (asJson_) {
        // What the operating system says need not be UTF-8.
        write(objectFor(failure).dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
    } else {
        for (const Report& report : reports_) write(report.text_);
    }
}

void Output::finishRound() {
    writeReports(std::nullopt);
    for (Report& report : reports_) report.startAnew();
    flush();
}

void Output::finish(const std::optional<Failure>& failure) {
    const bool ran = failure || !command_.empty();  // not so when help was asked for
    if (ran) writeReports(failure);
    flush();
}

ExitCode worstOf(const std::deque<Report>& reports, const std::optional<Failure>& failure) {
    int worst = exitCodeOf(failure);
    for (const Report& report : reports)
        worst = std::max(worst, static_cast<int>(report.exitCode()));
    return static_cast<ExitCode>(worst);
}

}  // namespace wren
