// What a command has to say, in the form that its reader wants: text for people, or one JSON object
// on one line, when the command has ended.
//
// Threads: an Output is used by the main thread, each of its Reports by the thread that works with
// its adapter. Failures to write are thrown as Failure.
#ifndef WREN_OUTPUT_H
#define WREN_OUTPUT_H

#include <fmt/format.h>

#include <deque>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "failure.h"
#include "image.h"

namespace wren {

using Json = nlohmann::ordered_json;

// What a command found at one adapter, or at none in particular.
class Report {
   public:
    // The text form names the adapter in every line if it is one of several.
    explicit Report(bool oneOfSeveral);
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;
    ~Report();

    // The adapter as it is to be called: its id, or else what the user named it by.
    const std::string& adapter() const noexcept { return adapter_; }
    bool isOneOfSeveral() const noexcept { return oneOfSeveral_; }
    void setName(std::string name) { adapter_ = std::move(name); }
    void setId(std::uint64_t id);
    // "adapter 100: ", which stands before its failure, ...
    std::string name() const;
    // ... and before each of its lines if it is one of several; nothing otherwise.
    std::string mark() const { return oneOfSeveral_ ? name() : ""; }
    // The words that the command works with: where they are, and they themselves, become part of
    // the result.
    void setPlace(std::span<const Segment> segments);
    void setMemory(std::span<const Segment> segments);

    // Lines of the text form: data alone, ...
    template <class... Values>
    void print(fmt::format_string<Values...> format, Values&&... values) {
        add(fmt::format(format, std::forward<Values>(values)...));
    }
    // ... what was done, behind the adapter's name, ...
    template <class... Values>
    void say(fmt::format_string<Values...> format, Values&&... values) {
        add((oneOfSeveral_ ? "" : name()) + fmt::format(format, std::forward<Values>(values)...));
    }
    // ... and the same as a remark within a file of words.
    template <class... Values>
    void remark(fmt::format_string<Values...> format, Values&&... values) {
        add("# " + (oneOfSeveral_ ? "" : name()) +
            fmt::format(format, std::forward<Values>(values)...));
    }
    // The object of the other form; to be filled in.
    Json& result() noexcept { return *result_; }
    const Json& result() const noexcept { return *result_; }

    void fail(Failure failure) { failure_ = std::move(failure); }
    const std::optional<Failure>& failure() const noexcept { return failure_; }
    ExitCode exitCode() const noexcept { return failure_ ? failure_->exitCode() : ExitCode::done; }

   private:
    friend class Output;

    void add(std::string_view lines);
    void startAnew();

    bool oneOfSeveral_;
    std::string adapter_;
    std::optional<std::uint64_t> id_;
    std::string text_;
    std::unique_ptr<Json> result_;
    std::optional<Failure> failure_;
};

class Output {
   public:
    // From now on JSON; the text form goes nowhere.
    void useJson() noexcept { asJson_ = true; }
    bool isJson() const noexcept { return asJson_; }
    // The command's name, which the object bears.
    void setCommand(std::string name) { command_ = std::move(name); }
    const std::string& command() const noexcept { return command_; }
    // From now on the reports are those of several adapters, however many come.
    void expectSeveral() noexcept { several_ = true; }

    // Adds a report, which lives as long as this.
    Report& add() { return reports_.emplace_back(several_); }
    const std::deque<Report>& reports() const noexcept { return reports_; }

    // Writes the only report of a command that goes on, which starts anew.
    void finishRound();
    // Writes what is left, and sees that all of it arrives. The failure, if any, is that of the
    // command as a whole.
    void finish(const std::optional<Failure>& failure);

   private:
    Json objectFor(const std::optional<Failure>& failure) const;
    void writeReports(const std::optional<Failure>& failure);

    bool asJson_ = false;
    bool several_ = false;
    std::string command_;
    std::deque<Report> reports_;
};

// The worst of how a command ended as a whole and at its adapters.
ExitCode worstOf(const std::deque<Report>& reports, const std::optional<Failure>& failure);

}  // namespace wren

#endif
