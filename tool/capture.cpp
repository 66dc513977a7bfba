// SPDX-License-Identifier: MIT
// The subcommand "capture": keeps all that passes in a file for Wireshark, tshark and the like.
#include "capture.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "byte_order.h"
#include "capture_file.h"
#include "capture_from.h"
#include "capture_media.h"
#include "capture_record.h"
#include "common.h"
#include "connection.h"
#include "libvoice_plugin.h"
#include "options.h"
#include "pcapng.h"
#include "run_limit.h"
#include "tap_drain.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr RunLimit::Tick kCaptureTick{200}; // how often a lost bus is tried
constexpr double kAnswerSeconds = 1;        // that the application has at least, to admit the tap
constexpr uint64_t kSoundEvery = 256;       // messages
constexpr uint32_t kBusInterface = 0;
constexpr uint32_t kMediaInterface = 1;

struct CaptureOptions {
    std::string socket; // empty: where the environment says
    std::string output = "-";
    bool force = false;
    bool reconnect = false;
    bool media = false;
    PortRange ports{};
    std::vector<std::string> media_from;
    uint64_t count = 0; // 0: no limit
    double seconds = 0; // 0: no limit
};

std::string system_name() {
    utsname name{};
    return uname(&name) == 0 ? fmt::format("{} {} {}", name.sysname, name.release, name.machine) : "";
}

// What stands in front of all packets.
std::string capture_head(const Address &address) {
    const char *order = byte_order_here() == ByteOrder::little ? "little" : "big";
    return pcapng::section(fmt::format("voicectl {}", libvoice_version()), system_name()) +
           pcapng::interface(pcapng::kUpperLayer, "kex",
                             fmt::format("messages of the bus at {}, {}-endian, version {}", printable(address.uri),
                                         order, libvoice_version()));
}

// One run of the subcommand.
class Capture {
public:
    explicit Capture(CaptureOptions options)
        : options_(std::move(options)), address_(address_of(options_.socket)), limit_(options_.seconds) {}

    int run() {
        std::string why;
        Tap tap = tap_open(address_, why);
        if (tap == nullptr && !options_.reconnect) {
            complain(why);
            return kFailure;
        }
        if (tap != nullptr && !is_admitted(*tap))
            return kFailure;
        if (const std::string wrong = file_.open(options_.output, options_.force); !wrong.empty()) {
            complain(wrong);
            return kFailure;
        }
        if (options_.media)
            if (const std::string wrong = media_.begin(options_.ports); !wrong.empty())
                complain(fmt::format("{}: the capture has no sound", wrong));
        from_.begin(options_.media_from, now_ns());
        const uint32_t next_interface = media_.descriptor() >= 0 ? kMediaInterface + 1 : kMediaInterface;
        file_.add(capture_head(address_) + media_.head(kMediaInterface) + from_.head(next_interface), limit_);
        file_.write(limit_);
        while (follow(tap.get()) && options_.reconnect && !done()) {
            limit_.wait({media_.descriptor()}, file_.descriptor(), kCaptureTick);
            sound_keep();
            tap = tap_open(address_, why);
        }
        return finish();
    }

private:
    bool done() const { return limit_.reached() || !file_.fault().empty() || counted_out(); }
    bool counted_out() const { return options_.count != 0 && kept_ >= options_.count; }

    // Waits for the first record, which says so: an older file stays as it is until then.
    bool is_admitted(kex_tap_t &tap) {
        kex_tap_record_t record{};
        int found = 0;
        // However short the capture is to be, the answer has its time.
        RunLimit patience(options_.seconds == 0 ? 0 : std::max(options_.seconds, kAnswerSeconds));
        while ((found = kex_tap_next(&tap, &record)) == 0 && !patience.reached())
            patience.wait({kex_tap_descriptor(&tap)}, -1, kCaptureTick);
        if (found > 0)
            keep(tap, record);
        admitted_ = found > 0 && !refused_;
        if (found == 0)
            complain("the voice application does not answer: see voicectl doctor");
        return !refused_ && found != 0;
    }

    // Keeps what passes until the end of the run or of the bus. Whether to go on.
    bool follow(kex_tap_t *tap) {
        bool watching = admitted_;
        if (admitted_)
            complain(fmt::format("capturing {}", printable(address_.uri)));
        admitted_ = false;
        while (tap != nullptr && !done()) {
            kex_tap_record_t record{};
            const int found = kex_tap_next(tap, &record);
            if (found > 0) {
                if (!watching && record.kind != KEX_TAP_REFUSED)
                    complain(fmt::format("capturing {}", printable(address_.uri)));
                watching = true;
                keep(*tap, record);
                if (++passed_ % kSoundEvery == 0) // a bus that never rests must not keep sound waiting
                    sound_keep();
                continue;
            }
            const bool more = sound_keep();
            file_.write(limit_);
            if (found < 0) {
                if (!refused_)
                    complain("the voice application is gone");
                break;
            }
            limit_.wait({kex_tap_descriptor(tap), media_.descriptor()}, file_.descriptor(),
                        more ? RunLimit::Tick{0} : kCaptureTick);
        }
        if (tap != nullptr && limit_.reached())
            tap_drain(
                *tap, [this] { return file_.fault().empty() && !limit_.reader_left() && !counted_out(); },
                [this, tap](const kex_tap_record_t &record) { keep(*tap, record); });
        return !done() && !refused_;
    }

    void keep(const kex_tap_t &tap, const kex_tap_record_t &record) {
        last_time_ns_ = record.time_ns != 0 ? record.time_ns : now_ns();
        if (record.kind == KEX_TAP_LOST) {
            lost_before_ += record.lost;
            lost_ += record.lost;
            return;
        }
        if (record.kind == KEX_TAP_WATCHING)
            return;
        if (const std::string refusal = tap_refusal(record); !refusal.empty()) {
            refused_ = true;
            complain(refusal);
            return;
        }
        uint32_t size = 0;
        const void *bytes = kex_tap_packet(&tap, &size);
        const std::string_view message(static_cast<const char *>(bytes), size);
        file_.add(addresses_.name_block(record.from) + addresses_.name_block(record.to), limit_);
        file_.add(pcapng::packet(kBusInterface, last_time_ns_,
                                 capture_payload(record, message, static_cast<uint32_t>(lost_before_), addresses_),
                                 lost_before_, ""),
                  limit_);
        lost_before_ = 0;
        ++kept_;
    }

    // Whether there may be more: a file can be long, and holds what was before the capture, too.
    bool sound_keep() {
        media_.keep(file_, limit_);
        return from_.keep(file_, limit_);
    }

    // The sums, in the file and for people.
    int finish() {
        const auto enough = RunLimit::Clock::now() + kMostDraining;
        while (sound_keep() && file_.fault().empty() && !limit_.reader_left() && RunLimit::Clock::now() < enough)
            ;
        const uint64_t end_ns = last_time_ns_ != 0 ? last_time_ns_ : now_ns();
        file_.add(pcapng::statistics(kBusInterface, end_ns, kept_ + lost_, lost_) + media_.sums(end_ns) +
                      from_.sums(end_ns),
                  limit_);
        file_.write(limit_);
        if (!file_.fault().empty())
            complain(file_.fault());
        complain(fmt::format("{} messages captured, {} copies lost", kept_, lost_));
        if (media_.descriptor() >= 0)
            complain(fmt::format("{} packets of sound captured, {} lost", media_.kept(), media_.lost()));
        for (const std::string &sentence : from_.sentences())
            complain(sentence);
        return file_.fault().empty() && !limit_.reader_left() && !refused_ ? kSuccess : kFailure;
    }

    CaptureOptions options_;
    Address address_;
    RunLimit limit_;
    CaptureFile file_;
    CaptureMedia media_;
    CaptureFrom from_;
    CaptureAddresses addresses_;
    uint64_t last_time_ns_ = 0;
    uint64_t passed_ = 0; // of the bus
    uint64_t kept_ = 0;
    uint64_t lost_ = 0;
    uint64_t lost_before_ = 0; // the next message
    bool refused_ = false;
    bool admitted_ = false; // by the tap at hand, which has not been said yet
};

PortRange ports_read(const std::string &text) {
    PortRange ports;
    const size_t dash = text.find('-');
    if (dash == std::string::npos || !number_read(text.substr(0, dash), ports.first) ||
        !number_read(text.substr(dash + 1), ports.last) || ports.first == 0 || ports.last < ports.first)
        throw UsageError(fmt::format("--ports is FIRST-LAST, as in 30000-30199, not {}", in_quotes(text)));
    return ports;
}

int capture(const CaptureOptions &options) {
    if (options.output == "-" && isatty(STDOUT_FILENO) != 0) {
        complain("standard output is a terminal: -o FILE keeps the capture");
        return kUsage;
    }
    RunLimit::signals_take();
    return Capture(options).run();
}

} // namespace

void capture_add(CLI::App &app, std::function<int()> &run) {
    const auto options = std::make_shared<CaptureOptions>();
    CLI::App &command = *app.add_subcommand("capture", "Keep all that passes in a file for Wireshark and tshark");
    command.footer("Example: voicectl capture -o - | tshark -r -\n"
                   "The format is pcapng; kexbus.lua, installed with voicectl, shows what is in the messages.\n");
    path_option_add(command, "-s,--socket", options->socket,
                    "The voice application's socket (else where $ZIL_VOIP_IPC_SOCKET_URI says)");
    const auto take = [&options = *options](const std::string &text) {
        if (text.empty())
            throw UsageError("--output wants a file or -, not an empty name");
        options.output = text;
    };
    text_option_add(command, "-o,--output", take, "Where to; without it standard output", "FILE|-");
    command.add_flag("-f,--force", options->force, "Replace a file that is there");
    count_option_add(command, "-n,--count", options->count, "End after so many messages");
    seconds_option_add(command, "--for", options->seconds, "End after so many seconds");
    command.add_flag("-r,--reconnect", options->reconnect, "Wait for the voice application, also when it goes");
    command.add_flag("-m,--media", options->media, "Sound, too: RTP and RTCP on this machine (needs CAP_NET_RAW)");
    const CLI::Option *ports = text_option_add(
        command, "-p,--ports", [&options = *options](const std::string &text) { options.ports = ports_read(text); },
        "Its UDP ports; without it 30000-30199, as the voice application has them", "FIRST-LAST");
    files_option_add(command, "--media-from", options->media_from, CaptureFrom::kMostFiles,
                     "Sound, too: what plugins write to these files, as it comes");
    command.callback([options, ports, &run] {
        if (ports->count() > 0 && !options->media)
            throw UsageError("--ports wants --media");
        run = [options] { return capture(*options); };
    });
}

} // namespace voicectl
