// SPDX-License-Identifier: MIT
// Each row of the table of checks: what is wrong, and what mends it.
#include "doctor_checks.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "libvoice_meanings.h"
#include "libvoice_plugin.h"

using namespace voicectl;

namespace {

// An installation without a fault.
Facts sound() {
    Facts facts;
    facts.place = {.uri = "kex://ipc:[/run/bus]",
                   .path = "/run/bus",
                   .uri_variable = "kex://ipc:[/run/bus]",
                   .path_variable = "/run/bus",
                   .exists = true,
                   .is_socket = true,
                   .rights = "mode 0660, owner root, group voice",
                   .folder_rights = "mode 0755, owner root, group root"};
    facts.bus.answered = true;
    facts.bus.watched = 10.5;
    facts.bus.listener = {.id = 10,
                          .name = "voice_application",
                          .state = 'S',
                          .descriptors = 1024,
                          .libraries = {{"libkex.so", libvoice_version()}, {"libvoice_plugin.so", libvoice_version()}},
                          .environment = std::vector<std::string>{}};
    facts.bus.peers = {facts.bus.listener};
    facts.bus.peers[0].id = 20;
    facts.bus.peers[0].name = "fxs_plugin";
    facts.tables = TableFacts{.plugins = {{"fxs1", 20}}, .endpoints = {"fxs1.FXS1"}};
    facts.machine = {.send_buffer = 212992,
                     .has_wireshark = true,
                     .dissector = "/usr/lib/wireshark/plugins/kexbus.lua",
                     .stamp = LIBVOICE_MEANINGS_STAMP,
                     .personal_folder = "/home/ann/.local/lib/wireshark/plugins"};
    return facts;
}

Finding finding(const Facts &facts, const std::string &check) {
    for (const Finding &one : facts_check(facts))
        if (one.check == check)
            return one;
    ADD_FAILURE() << "no check " << check;
    return {};
}

std::string shown(const Finding &finding) {
    static const char *const words[] = {"ok", "unseen", "warn", "fail"};
    return words[static_cast<int>(finding.verdict)] + (": " + finding.text) +
           (finding.fix.empty() ? "" : " -> " + finding.fix);
}

// What a check says after a change of the sound installation.
template <class Change>
std::string after(const std::string &check, Change change) {
    Facts facts = sound();
    change(facts);
    return shown(finding(facts, check));
}

TEST(DoctorChecks, SoundInstallationHasNothingToMend) {
    for (const Finding &one : facts_check(sound())) {
        EXPECT_EQ(one.verdict, Verdict::ok) << one.check << ' ' << shown(one);
        EXPECT_EQ(one.fix, "") << one.check;
        EXPECT_NE(one.text, "") << one.check;
    }
}

TEST(DoctorChecks, AddressThatIsNoneOrTooLongIsFound) {
    EXPECT_EQ(after("address", [](Facts &f) { f.place = {.uri = "tcp:1\x1b"}; }),
              "fail: 'tcp:1\\x1B' is no address -> write ZIL_VOIP_IPC_SOCKET_URI as kex://ipc:[PATH]");
    const auto long_path = [](size_t bytes) { return [bytes](Facts &f) { f.place.path.assign(bytes, 'x'); }; };
    EXPECT_EQ(after("address", long_path(108)),
              "fail: the path has 108 bytes, a socket's has 107 at most -> choose a shorter path");
    EXPECT_EQ(after("address", long_path(107)), "ok: kex://ipc:[/run/bus]");
}

TEST(DoctorChecks, VariablesThatDisagree) {
    const std::string both =
        " -> set ZIL_VOIP_IPC_SOCKET=PATH and ZIL_VOIP_IPC_SOCKET_URI=kex://ipc:[PATH], the same path";
    EXPECT_EQ(after("variables", [](Facts &f) { f.place.path_variable = "/tmp/bus"; }),
              "fail: plugins connect to '/run/bus', the application listens at '/tmp/bus'" + both);
    EXPECT_EQ(after("variables", [](Facts &f) { f.place.path_variable = ""; }),
              "fail: ZIL_VOIP_IPC_SOCKET is set and empty" + both);
    EXPECT_EQ(after("variables", [](Facts &f) { f.place.uri_variable = ""; }),
              "fail: ZIL_VOIP_IPC_SOCKET_URI is set and empty" + both);
    EXPECT_EQ(after("variables", [](Facts &f) { f.place.path_variable.reset(); }),
              "warn: only ZIL_VOIP_IPC_SOCKET_URI is set: the application and its plugins look at different places" +
                  both);
    EXPECT_EQ(after("variables",
                    [](Facts &f) {
                        f.place.path_variable.reset();
                        f.place.uri_variable.reset();
                    })
                  .substr(0, 3),
              "ok:");
}

std::string socket_after(int error, bool is_socket = true) {
    return after("socket", [=](Facts &f) {
        f.place.error = error;
        f.place.is_socket = is_socket;
    });
}

TEST(DoctorChecks, SocketThatCannotBeConnectedTo) {
    EXPECT_EQ(socket_after(ENOENT), "fail: no socket /run/bus -> start voice_application, or set "
                                    "ZIL_VOIP_IPC_SOCKET_URI to where it listens");
    EXPECT_EQ(socket_after(ECONNREFUSED), "fail: nobody listens on /run/bus: its listener died -> start "
                                          "voice_application: it takes a socket over that was left behind");
    EXPECT_EQ(socket_after(ECONNREFUSED, false), "fail: /run/bus is no socket -> remove the file, or use another path");
    EXPECT_EQ(socket_after(EPROTOTYPE), "fail: /run/bus is a socket of another kind: another program listens there -> "
                                        "use another path for the bus");
    EXPECT_EQ(
        socket_after(EACCES),
        "fail: no right to connect to /run/bus (mode 0660, owner root, group voice; its folder mode 0755, owner "
        "root, group root) -> start voice_application with the uid in KEX_ALLOW_UIDS, and its socket where the user "
        "may enter");
    EXPECT_EQ(socket_after(EAGAIN),
              "fail: /run/bus takes no more connections: its listener is stopped or busy -> ss -xlp "
              "names its process; kill -CONT continues one that is stopped, restart one that is "
              "busy");
    EXPECT_EQ(socket_after(EMFILE), "fail: cannot connect to /run/bus: Too many open files -> start voice_application "
                                    "anew; see its traces");
}

TEST(DoctorChecks, WithoutAConnectionTheRestIsNotVisible) {
    Facts facts = sound();
    facts.place.error = ENOENT;
    facts.bus = {};
    facts.tables.reset();
    for (const Finding &one : facts_check(facts))
        if (std::string("address variables socket socket buffers wireshark").find(one.check) == std::string::npos) {
            EXPECT_EQ(one.verdict, Verdict::unseen) << one.check << ' ' << shown(one);
        }
}

TEST(DoctorChecks, RefusalIsSaidAsItCame) {
    EXPECT_EQ(after("admission", [](Facts &f) { f.bus.refusal = "the protocol version differs"; }),
              "fail: refused: the protocol version differs -> as it says; of versions and byte orders: both sides from "
              "one build");
}

TEST(DoctorChecks, WhetherATapIsAdmittedIsSeenWhenItIsAnswered) {
    EXPECT_EQ(after("admission", [](Facts &f) { f.bus.answered = false; }),
              "unseen: not visible: the application does not answer");
}

TEST(DoctorChecks, ApplicationThatAnsweredAndDoesSoNoMore) {
    EXPECT_EQ(after("answer", [](Facts &f) { f.bus.listener.state = 'T'; }),
              "fail: process 10 does not answer: it is stopped -> kill -CONT 10");
    EXPECT_EQ(
        after("answer", [](Facts &f) { f.bus.ended = true; }),
        "fail: process 10 has closed the connection while it was watched -> when it has ended: see why, and start "
        "voice_application");
}

TEST(DoctorChecks, WhyNobodyAnswersIsSaidByTheStateOfTheProcess) {
    const auto silent = [](char state) {
        return [state](Facts &f) {
            f.bus.answered = false;
            f.bus.listener.state = state;
        };
    };
    EXPECT_EQ(after("answer", silent('T')), "fail: process 10 does not answer: it is stopped -> kill -CONT 10");
    EXPECT_EQ(after("answer", silent('R')), "fail: process 10 does not answer within 1 s: it is busy -> see what "
                                            "process 10 does; when it never ends, restart it");
}

TEST(DoctorChecks, WhoeverWaitsIsSaidWithWhomAndForHowLong) {
    const WaitFacts wait{"voice_application", "fxs1", "get", 3, true, true, 12.3, 20};
    EXPECT_EQ(
        after("waits", [&](Facts &f) { f.bus.waits = {wait}; }),
        "fail: voice_application has waited 12 s for 'get' of fxs1 -> see what fxs1 (process 20) does: it does not "
        "answer");
    EXPECT_EQ(after("waits",
                    [&](Facts &f) {
                        f.bus.waits = {wait};
                        f.bus.peers[0].state = 'T';
                    }),
              "fail: voice_application has waited 12 s for 'get' of fxs1 -> fxs1 is stopped: kill -CONT 20");
    EXPECT_EQ(after("waits",
                    [&](Facts &f) {
                        f.bus.waits = {wait};
                        f.bus.waits[0].seconds = 1.9;
                    })
                  .substr(0, 3),
              "ok:");
    const WaitFacts back{"fxs1", "voice_application", "", 3, false, true, 4, 10};
    EXPECT_EQ(after("crossed waits",
                    [&](Facts &f) {
                        f.bus.waits = {wait, back};
                    }),
              "fail: voice_application and fxs1 wait for each other -> restart fxs1, and report its trace");
    EXPECT_EQ(after("crossed waits",
                    [&](Facts &f) {
                        f.bus.waits = {wait, back};
                        f.bus.waits[1].connection = 4;
                    })
                  .substr(0, 3),
              "ok:");
    EXPECT_EQ(after("crossed waits",
                    [&](Facts &f) {
                        f.bus.waits = {wait, back};
                        f.bus.waits[0].blocked = false;
                    })
                  .substr(0, 3),
              "ok:")
        << "a call whose answer comes later stops nobody";
}

TEST(DoctorChecks, TablesThatAreNearlyFullAreFound) {
    const auto many = [](size_t plugins, size_t endpoints) {
        return [=](Facts &f) {
            f.tables->plugins.assign(plugins, {"fxs1", 20});
            f.tables->endpoints.assign(endpoints, "fxs1.FXS1");
        };
    };
    const std::string fix = " -> deregister what is not needed: the sizes are fixed";
    EXPECT_EQ(after("tables", many(6, 29)), "ok: 6 of 8 plugins, 29 of 32 endpoints");
    EXPECT_EQ(after("tables", many(7, 29)), "warn: 7 of 8 plugins, 29 of 32 endpoints" + fix);
    EXPECT_EQ(after("tables", many(6, 30)), "warn: 6 of 8 plugins, 30 of 32 endpoints" + fix);
    EXPECT_EQ(after("tables", [](Facts &f) { f.tables.reset(); }),
              "unseen: not visible from here -> name the application's control socket: --control PATH");
    EXPECT_EQ(after("tables", [](Facts &f) { f.tables->problem = "no control socket"; }),
              "warn: no control socket -> name the socket that voice_application --control made");
}

TEST(DoctorChecks, WhatAPluginThatHasGoneLeftInTheTablesIsFound) {
    EXPECT_EQ(after("leftovers", [](Facts &f) { f.tables->plugins[0].running = false; }),
              "fail: plugin fxs1 is registered, its process 20 is gone -> restart voice_application");
    EXPECT_EQ(after("leftovers", [](Facts &f) { f.tables->endpoints.push_back("fxs10.FXS1"); }),
              "fail: endpoint fxs10.FXS1 belongs to no plugin -> restart voice_application");
}

TEST(DoctorChecks, TooFewDescriptorsAndSmallSocketBuffersAreFound) {
    EXPECT_EQ(after("descriptors", [](Facts &f) { f.bus.listener.descriptors = 255; }),
              "warn: process 10 may have 255 descriptors open -> LimitNOFILE=256 or more for its service, ulimit -n in "
              "a shell");
    EXPECT_EQ(after("descriptors", [](Facts &f) { f.bus.listener.descriptors = 256; }),
              "ok: process 10 may have 256 open");
    EXPECT_EQ(after("descriptors", [](Facts &f) { f.bus.listener.descriptors.reset(); }),
              "unseen: not visible from here -> run it as root or as the application's user");
    EXPECT_EQ(after("socket buffers", [](Facts &f) { f.machine.send_buffer = 131071; }),
              "warn: sockets have room for 131071 bytes, a full packet has 131072 -> sysctl "
              "net.core.wmem_default=262144");
}

TEST(DoctorChecks, ProcessesOfOtherVersionsOrReplacedLibrariesAreFound) {
    EXPECT_EQ(after("versions", [](Facts &f) { f.bus.peers[0].libraries[0].version = "0.9.0"; }),
              std::string("warn: fxs_plugin (process 20) has libkex.so 0.9.0, voicectl ") + libvoice_version() +
                  " -> upgrade one of them, and restart process 20");
    EXPECT_EQ(after("versions", [](Facts &f) { f.bus.listener.libraries[1].replaced = true; }),
              std::string("warn: voice_application (process 10) has libvoice_plugin.so ") + libvoice_version() +
                  ", which is no longer installed -> restart process 10");
}

TEST(DoctorChecks, TraceThatHidesErrors) {
    const auto with = [](const char *name, const char *value) {
        return [=](Facts &f) { f.bus.peers[0].environment->push_back(std::string(name) + "=" + value); };
    };
    EXPECT_EQ(after("trace", with("ZIL_TRACE_LEVEL", "99")),
              "warn: ZIL_TRACE_LEVEL=99 of fxs_plugin (process 20) hides errors -> unset ZIL_TRACE_LEVEL, and restart "
              "process 20");
    EXPECT_EQ(after("trace", with("ZIL_TRACE_LEVEL", "100")), "ok: errors are traced");
    EXPECT_EQ(after("trace", with("ZIL_TRACE_LEVEL", "low")), "ok: errors are traced") << "passed over by the trace";
    EXPECT_EQ(
        after("trace", with("ZIL_TRACE_ZONES", "LIBV=500,SIGNL=0")),
        "warn: ZIL_TRACE_ZONES=SIGNL=0 of fxs_plugin (process 20) hides errors -> unset ZIL_TRACE_ZONES, and restart "
        "process 20");
    EXPECT_EQ(after("trace", with("ZIL_TRACE_ZONES", "LIBV=500,,X")), "ok: errors are traced");
}

TEST(DoctorChecks, InheritedSocketsHaveToBeOfTheBussKind) {
    EXPECT_EQ(after("activation",
                    [](Facts &f) {
                        f.bus.listener.inherited = {SOCK_STREAM, 0};
                    }),
              "fail: process 10 inherited 2 sockets, none of the bus's kind -> ListenSequentialPacket= in its socket "
              "unit");
    EXPECT_EQ(after("activation",
                    [](Facts &f) {
                        f.bus.listener.inherited = {SOCK_STREAM, SOCK_SEQPACKET};
                    }),
              "ok: the application got its socket at its start");
}

TEST(DoctorChecks, DissectorThatIsMissingOrOfAnotherVocabularyIsFound) {
    const std::string fix = " -> copy kexbus.lua of this voicectl to /home/ann/.local/lib/wireshark/plugins";
    EXPECT_EQ(after("wireshark", [](Facts &f) { f.machine.dissector = ""; }),
              "warn: Wireshark finds no kexbus.lua" + fix);
    EXPECT_EQ(after("wireshark", [](Facts &f) { f.machine.stamp = LIBVOICE_MEANINGS_STAMP + 1; }),
              "warn: /usr/lib/wireshark/plugins/kexbus.lua has another vocabulary than this voicectl" + fix);
    EXPECT_EQ(after("wireshark",
                    [](Facts &f) {
                        f.machine.dissector = "";
                        f.machine.has_wireshark = false;
                    }),
              "ok: Wireshark is not installed");
}

} // namespace
