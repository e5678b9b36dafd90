#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "interruption.h"
#include "system.h"

namespace wren {

namespace {

// An adapter as it was found.
struct Found {
    Port port;
    std::string firmware;
    std::optional<Failure> failure;  // of one that does not answer

    bool operator==(const Found& other) const { return port.id == other.port.id; }
};
using Ports = std::vector<Found>;

// The library looks for adapters when there is no other stream.
Ports look(Context& context) {
    Ports found;
    const Session listing(context.debugText);
    for (const Port& port : listing.ports()) {
        Found& entry = found.emplace_back(Found{port, "", {}});
        entry.failure = failureOf([&] {
            Session session(context.debugText);
            session.select(std::to_string(port.key));
            entry.firmware = session.firmware();
        });
    }
    return found;
}

std::size_t answering(const Ports& ports) {
    return static_cast<std::size_t>(
        std::ranges::count_if(ports, [](const Found& entry) { return !entry.failure; }));
}

void list(Report& report, const Ports& ports) {
    Json& listed = report.result()["ports"] = Json::array();
    if (!ports.empty()) report.print("PORT  {:<20}  {:<10}  FIRMWARE\n", "NAME", "ID");
    for (const auto& [port, firmware, failure] : ports) {
        Json entry{{"key", port.key}, {"name", port.name}, {"id", nullptr}, {"firmware", nullptr}};
        if (failure) {
            entry["error"] = {{"code", failure->errorCode()}, {"text", failure->what()}};
        } else {
            entry["id"] = port.id;
            entry["firmware"] = firmware;
        }
        report.print("{:>4}  {:<20}  {:<10}  {}\n", port.key, port.name,
                     failure ? "-" : std::to_string(port.id),
                     failure ? fmt::format("error {}: {}", failure->errorCode(), failure->what())
                             : firmware);
        listed.push_back(std::move(entry));
    }
}

// Those of some that are not among others.
Ports missingIn(const Ports& others, const Ports& some) {
    Ports missing;
    std::ranges::copy_if(some, std::back_inserter(missing), [&](const Found& entry) {
        return std::ranges::find(others, entry) == others.end();
    });
    return missing;
}

void tell(Report& report, const char* change, const Ports& ports) {
    Json& ids = report.result()[change] = Json::array();
    for (const Found& entry : ports) {
        report.print("adapter {} {}\n", entry.port.id, change);
        ids.push_back(entry.port.id);
    }
}

// Looks until so many adapters answer, or for as long as the user wants to wait.
Ports await(Context& context, std::size_t wanted) {
    using Clock = std::chrono::steady_clock;
    constexpr double kPause = 0.2;
    const auto start = Clock::now();
    const std::chrono::duration<double> patience(
        context.connection.turn.mostSeconds.value_or(std::numeric_limits<double>::infinity()));
    for (;;) {
        Ports ports = look(context);
        const std::size_t there = answering(ports);
        if (there >= wanted) return ports;
        if (Clock::now() - start >= patience)
            throw Failure(ExitCode::noAdapter,
                          fmt::format("{} of {} adapters answer", there, wanted),
                          "'wren ports' lists them; wait longer with --wait");
        if (!waitFor(kPause)) throw Failure(ExitCode::interrupted, "interrupted");
    }
}

// Until Ctrl-C.
void watch(Context& context, Report& report, Ports ports, double seconds) {
    context.output.finishRound();
    while (waitFor(seconds)) {
        Ports now = look(context);
        if (now == ports) continue;
        tell(report, "went", missingIn(now, ports));
        tell(report, "came", missingIn(ports, now));
        context.output.finishRound();
        ports = std::move(now);
    }
}

}  // namespace

Work listPorts(const PortsRequest& request, Context& context) {
    Report& report = context.output.add();
    noteInterrupts();
    Ports ports = request.awaited > 0 ? await(context, request.awaited) : look(context);
    list(report, ports);
    if (request.watchSeconds) {
        watch(context, report, std::move(ports), *request.watchSeconds);
    } else if (ports.empty()) {
        report.result()["reason"] = system::whyNoAdapters();
        terminal::tell(fmt::format("wren: no adapters found; {}\n", system::whyNoAdapters()));
    }
    return {};
}

}  // namespace wren
