// SPDX-License-Identifier: MIT
#include "doctor_findings.h"

#include <algorithm>

#include <fmt/format.h>
#include <sys/socket.h>

#include "libvoice_meanings.h"
#include "libvoice_plugin.h"
#include "numbers.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr uint32_t kBusPacket = 128 * 1024;
constexpr uint64_t kFewDescriptors = 256;
constexpr int kErrorLevel = 100;

// The setting that hides errors, the first of them; levels of zones stand in one as "LIBV=500,SIGNL=400".
std::string hidden_errors(const std::vector<std::string> &environment) {
    const auto hides = [](std::string_view text) {
        int level = kErrorLevel;
        return number_read(text, level) && level < kErrorLevel;
    };
    if (hides(entry_value(environment, "ZIL_TRACE_LEVEL=").value_or("")))
        return fmt::format("ZIL_TRACE_LEVEL={}", *entry_value(environment, "ZIL_TRACE_LEVEL="));
    for (std::string_view rest = entry_value(environment, "ZIL_TRACE_ZONES=").value_or(""); !rest.empty();) {
        const std::string_view zone = rest.substr(0, rest.find(','));
        if (zone.find('=') != std::string_view::npos && hides(zone.substr(zone.find('=') + 1)))
            return fmt::format("ZIL_TRACE_ZONES={}", zone);
        rest.remove_prefix(std::min(rest.size(), zone.size() + 1));
    }
    return "";
}

} // namespace

Finding descriptors_check(const Facts &facts) {
    const auto &limit = facts.bus.listener.descriptors;
    if (!limit)
        return not_ours(facts);
    if (*limit < kFewDescriptors)
        return warned(fmt::format("process {} may have {} descriptors open", facts.bus.listener.id, *limit),
                      fmt::format("LimitNOFILE={} or more for its service, ulimit -n in a shell", kFewDescriptors));
    return fine(fmt::format("process {} may have {} open", facts.bus.listener.id, *limit));
}

Finding buffers_check(const Facts &facts) {
    const uint32_t bytes = facts.machine.send_buffer;
    if (bytes < kBusPacket)
        return warned(fmt::format("sockets have room for {} bytes, a full packet has {}", bytes, kBusPacket),
                      fmt::format("sysctl net.core.wmem_default={}", 2 * kBusPacket));
    return fine(fmt::format("sockets have room for {} bytes", bytes));
}

Finding versions_check(const Facts &facts) {
    if (!is_connected(facts))
        return not_connected();
    std::vector<ProcessFacts> processes = facts.bus.peers;
    processes.push_back(facts.bus.listener);
    size_t seen = 0;
    for (const ProcessFacts &process : processes)
        for (const LibraryFacts &library : process.libraries) {
            ++seen;
            const std::string text = fmt::format("{} (process {}) has {} {}", printable(process.name), process.id,
                                                 library.name, printable(library.version));
            if (library.replaced)
                return warned(text + ", which is no longer installed", fmt::format("restart process {}", process.id));
            if (library.version != libvoice_version())
                return warned(fmt::format("{}, voicectl {}", text, libvoice_version()),
                              fmt::format("upgrade one of them, and restart process {}", process.id));
        }
    if (seen == 0)
        return unseen(fmt::format("voicectl {}; that of others is not visible from here", libvoice_version()),
                      "run it as root or as the application's user");
    return fine(fmt::format("all of version {}", libvoice_version()));
}

Finding trace_check(const Facts &facts) {
    std::vector<ProcessFacts> processes = facts.bus.peers;
    processes.push_back(facts.bus.listener);
    size_t seen = 0;
    for (const ProcessFacts &process : processes) {
        if (!process.environment)
            continue;
        ++seen;
        if (const std::string setting = hidden_errors(*process.environment); !setting.empty())
            return warned(
                fmt::format("{} of {} (process {}) hides errors", printable(setting), printable(process.name),
                            process.id),
                fmt::format("unset {}, and restart process {}", setting.substr(0, setting.find('=')), process.id));
    }
    if (seen == 0)
        return not_ours(facts);
    return fine("errors are traced");
}

Finding activation_check(const Facts &facts) {
    const ProcessFacts &listener = facts.bus.listener;
    if (!is_connected(facts) || !listener.environment)
        return not_ours(facts);
    if (listener.inherited.empty())
        return fine("the application made its socket itself");
    const auto &types = listener.inherited;
    if (std::find(types.begin(), types.end(), SOCK_SEQPACKET) == types.end())
        return failed(fmt::format("process {} inherited {} sockets, none of the bus's kind", listener.id, types.size()),
                      "ListenSequentialPacket= in its socket unit");
    return fine("the application got its socket at its start");
}

Finding wireshark_check(const Facts &facts) {
    const MachineFacts &machine = facts.machine;
    const std::string fix = fmt::format("copy kexbus.lua of this voicectl to {}", printable(machine.personal_folder));
    if (machine.dissector.empty())
        return machine.has_wireshark ? warned("Wireshark finds no kexbus.lua", fix)
                                     : fine("Wireshark is not installed");
    if (machine.stamp != LIBVOICE_MEANINGS_STAMP)
        return warned(fmt::format("{} has another vocabulary than this voicectl", printable(machine.dissector)), fix);
    return fine(printable(machine.dissector));
}

} // namespace voicectl
