#include "adapter.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "system.h"

namespace wren {

namespace {

using Adapters = std::vector<std::unique_ptr<Adapter>>;

// The texts between commas.
std::vector<std::string> namesIn(std::string_view list) {
    std::vector<std::string> names;
    for (;;) {
        const std::size_t comma = std::min(list.find(','), list.size());
        if (comma == 0)
            throw Failure(ExitCode::usage, "an adapter without a name", "leave out a comma");
        names.emplace_back(list.substr(0, comma));
        if (comma == list.size()) return names;
        list.remove_prefix(comma + 1);
    }
}

// What the user names the adapters by; where there is nothing to choose, what there is.
std::vector<std::string> namesOf(const std::string& asked, const std::vector<Port>& ports,
                                 const Session& session) {
    if (asked.empty() && ports.size() > 1)
        throw Failure(
            ExitCode::usage, fmt::format("{} adapters, and none is named", ports.size()),
            fmt::format("choose with --port, WREN_PORT or wren.toml; {}", session.choices()));
    if (!asked.empty() && asked != "all") return namesIn(asked);
    if (ports.empty()) throw Failure(ExitCode::noAdapter, "no adapters found", session.choices());
    std::vector<std::string> names;
    for (const Port& port : ports) names.push_back(std::to_string(port.key));
    return names;
}

void requireApart(const Adapters& adapters) {
    std::set<std::string> names;
    for (const auto& adapter : adapters)
        if (!names.insert(adapter->report.adapter()).second)
            throw Failure(ExitCode::usage,
                          fmt::format("adapter {} is named twice", adapter->report.adapter()));
}

// What went wrong between the host and a simulated adapter can be looked at.
void showWayToExchanges(const Adapter& adapter, Failure& failure) {
    const int code = failure.errorCode();
    if (code != SPIFNS_ERROR_IO && code != SPIFNS_ERROR_ADAPTER) return;
    const std::string way =
        system::wayToExchanges(adapter.session.get("SPIPORT"), adapter.context.isSimulated);
    if (!way.empty()) failure.setHint(failure.hint() + "; " + way);
}

// Adds the line of a command that has ended at an adapter, after so long; nothing when the user
// wants no record.
void record(const Adapter& adapter, std::chrono::duration<double> taken) {
    if (!adapter.context.record.isOpen()) return;
    const Report& report = adapter.report;
    Json line{{"time", timeStamp()},
              {"version", versionText(spifns_get_version())},
              {"adapter", report.adapter()},
              {"firmware", nullptr},
              {"command", adapter.context.output.command()}};
    const std::string firmware = adapter.session.firmware();
    if (firmware != "0.0") line["firmware"] = firmware;  // else the adapter has not told
    for (const char* member :
         {"address", "count", "pieces", "crc32", "written", "verified", "differing"})
        if (report.result().contains(member)) line[member] = report.result()[member];
    line["exit"] = static_cast<int>(report.exitCode());
    if (report.failure()) line["error"] = report.failure()->what();
    line["seconds"] = std::round(taken.count() * 1000) / 1000;
    adapter.context.record.add(line.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n');
}

void workWith(Adapter& adapter, const std::string& name, const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    const std::vector<Setting>& settings = adapter.context.connection.settings;
    auto failure = failureOf([&] {
        adapter.session.select(name);
        adapter.report.setId(adapter.session.id());
        if (!work.isBrief || !settings.empty())
            adapter.turn.take(adapter.session.get("MUTEXNAME"), adapter.report.adapter());
        adapter.session.setAll(settings);
        work(adapter);
    });
    adapter.turn.give();  // some systems let the thread alone do so that has it
    if (failure) showWayToExchanges(adapter, *failure);
    if (failure) adapter.report.fail(std::move(*failure));
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    failure = failureOf([&] { record(adapter, taken); });
    if (failure && !adapter.report.failure()) adapter.report.fail(std::move(*failure));
}

}  // namespace

void workWithAdapters(Context& context, const Work& work) {
    const std::string& asked = context.connection.port;
    if (context.connection.namesSeveral()) context.output.expectSeveral();
    Adapters adapters;
    const auto addAdapter = [&] {
        adapters.push_back(std::make_unique<Adapter>(context, context.output.add()));
    };
    addAdapter();
    const std::vector<Port> ports = adapters.front()->session.ports();
    const std::vector<std::string> names = namesOf(asked, ports, adapters.front()->session);
    while (adapters.size() < names.size()) addAdapter();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Port* const port = portNamed(ports, names[i]);
        adapters[i]->report.setName(names[i]);
        if (port != nullptr) adapters[i]->report.setId(port->id);
        adapters[i]->session.setMark(adapters[i]->report.mark());
    }
    requireApart(adapters);

    for (const std::string& lock : missingLocks())
        context.debugText.tell("WARNING: other hosts may come between: no lock " + lock);
    std::vector<std::jthread> others;
    for (std::size_t i = 1; i < names.size(); ++i)
        others.emplace_back([&, i] { workWith(*adapters[i], names[i], work); });
    workWith(*adapters.front(), names.front(), work);
}

}  // namespace wren
