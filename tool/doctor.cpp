// SPDX-License-Identifier: MIT
// The subcommand "doctor": what is wrong with an installation, and how it is mended.
#include "doctor.h"

#include <algorithm>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "common.h"
#include "doctor_checks.h"
#include "doctor_look.h"
#include "json.h"
#include "options.h"

namespace voicectl {

namespace {

// A wait tells of itself every 10 s.
constexpr double kDoctorSeconds = 10.5;

struct DoctorOptions {
    std::string socket;  // empty: where the environment says
    std::string control; // empty: the application is not asked
    double seconds = kDoctorSeconds;
    bool json = false;
};

const char *verdict_word(Verdict verdict) {
    switch (verdict) {
    case Verdict::ok:
        return "ok";
    case Verdict::unseen:
        return "-";
    case Verdict::warn:
        return "warn";
    case Verdict::fail:
        return "FAIL";
    }
    return "?";
}

std::string finding_text(const Finding &finding) {
    constexpr int kColumn = 22;
    std::string text = fmt::format("{:<5} {:<15} {}\n", verdict_word(finding.verdict), finding.check, finding.text);
    if (!finding.fix.empty())
        text += fmt::format("{:{}}{}\n", "", kColumn, "-> " + finding.fix);
    return text;
}

std::string finding_json(const Finding &finding) {
    JsonMembers members;
    members.add_text("check", finding.check);
    members.add_text("verdict", finding.verdict == Verdict::unseen ? "unseen"
                                : finding.verdict == Verdict::fail ? "fail"
                                                                   : verdict_word(finding.verdict));
    members.add_text("text", finding.text);
    members.add_text("fix", finding.fix);
    return members.object() + "\n";
}

// 0: all is well, as far as it can be seen; 1: something may go wrong; 2: something is wrong.
int doctor_status(const std::vector<Finding> &findings) {
    int status = 0;
    for (const Finding &finding : findings)
        status = std::max(status, finding.verdict == Verdict::fail ? 2 : finding.verdict == Verdict::warn ? 1 : 0);
    return status;
}

// Plugins that were there before the watching began are known from the tables only.
void plugins_add(Facts &facts) {
    for (const PluginFacts &plugin : facts.tables ? facts.tables->plugins : std::vector<PluginFacts>())
        if (std::none_of(facts.bus.peers.begin(), facts.bus.peers.end(),
                         [&plugin](const ProcessFacts &peer) { return peer.id == plugin.process; }))
            facts.bus.peers.push_back(process_look(plugin.process, plugin.name));
}

int doctor(const DoctorOptions &options) {
    RunLimit::signals_take();
    RunLimit limit(options.seconds);
    Facts facts;
    facts.place = place_look(options.socket);
    facts.bus = bus_look(facts.place, limit);
    if (!options.control.empty())
        facts.tables = tables_look(options.control);
    plugins_add(facts);
    facts.machine = machine_look();
    const std::vector<Finding> findings = facts_check(facts);
    std::string text;
    for (const Finding &finding : findings)
        text += options.json ? finding_json(finding) : finding_text(finding);
    const int written = output_write(text);
    return written != kSuccess ? written : doctor_status(findings);
}

} // namespace

void doctor_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<DoctorOptions>();
    CLI::App &command = *app.add_subcommand("doctor", "Say what is wrong with an installation, and how it is mended");
    command.footer("Example: voicectl doctor --for 3\n"
                   "Status 0: all is well as far as it can be seen from here; 1: a warning; 2: something is wrong.\n"
                   "Environment:\n"
                   "  ZIL_VOIP_IPC_SOCKET_URI     Where plugins look for the voice application, kex://ipc:[PATH]\n"
                   "  ZIL_VOIP_IPC_SOCKET         Where it listens\n");
    path_option_add(command, "-s,--socket", options->socket,
                    "The voice application's socket (else where $ZIL_VOIP_IPC_SOCKET_URI says)");
    path_option_add(command, "-c,--control", options->control, "Its control socket, for what is not on the bus");
    seconds_option_add(command, "--for", options->seconds,
                       "Watch so long; without it 10.5, in which each wait tells of itself");
    command.add_flag("-j,--json", options->json, "One JSON object per line");
    command.callback([options, &run] { run = [options] { return doctor(*options); }; });
}

} // namespace voicectl
