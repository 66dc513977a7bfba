// SPDX-License-Identifier: MIT
// Items of a record that belong together, said as one.
#include "summary.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>

#include "codec_names.h"
#include "libvoice_plugin.h"
#include "words.h"

namespace voicectl {

namespace {

// Takes items out of a record as they are put into words, so that what is left can be listed.
class Items {
public:
    explicit Items(const Record &record) {
        for (const Item &item : record.items)
            items_.push_back(&item);
    }

    // The number of an item that holds one.
    std::optional<int64_t> number(uint32_t id) const {
        const auto found = find(id);
        if (found == items_.end() || (*found)->value.type != Value::Type::number)
            return std::nullopt;
        return (*found)->value.number;
    }

    void take(uint32_t id) {
        if (const auto found = find(id); found != items_.end())
            items_.erase(found);
    }

    void take_zeros() {
        std::erase_if(items_, [](const Item *item) {
            return item->value.type == Value::Type::number && item->value.number == 0;
        });
    }

    const std::vector<const Item *> &left() const { return items_; }

private:
    std::vector<const Item *>::const_iterator find(uint32_t id) const {
        return std::find_if(items_.begin(), items_.end(), [id](const Item *item) { return item->id == id; });
    }

    std::vector<const Item *> items_;
};

void packets_add(Items &items, const char *form, uint32_t packets_id, uint32_t bytes_id,
                 std::vector<std::string> &words) {
    const std::optional<int64_t> packets = items.number(packets_id);
    const std::optional<int64_t> bytes = items.number(bytes_id);
    if (!packets || !bytes)
        return;
    words.push_back(fmt::format(fmt::runtime(form), *packets, *bytes));
    items.take(packets_id);
    items.take(bytes_id);
}

struct Coding {
    uint32_t codec, ptime, payload;
};
constexpr Coding kUpstream{LIBVOICE_PARAM_sdp_upstream_codec, LIBVOICE_PARAM_sdp_upstream_ptime,
                           LIBVOICE_PARAM_sdp_upstream_payload};
constexpr Coding kDownstream{LIBVOICE_PARAM_sdp_downstream_codec, LIBVOICE_PARAM_sdp_downstream_ptime,
                             LIBVOICE_PARAM_sdp_downstream_payload};

// "PCMA 20 ms payload 8"; empty, and nothing taken, unless all three are there.
std::string coding_words(Items &items, const Coding &coding) {
    const std::optional<int64_t> codec = items.number(coding.codec);
    const std::optional<int64_t> ptime = items.number(coding.ptime);
    const std::optional<int64_t> payload = items.number(coding.payload);
    if (!codec || !ptime || !payload)
        return "";
    for (const uint32_t id : {coding.codec, coding.ptime, coding.payload})
        items.take(id);
    return fmt::format("{} {} ms payload {}", codec_name(*codec), *ptime, *payload);
}

void media_add(Items &items, std::vector<std::string> &words) {
    if (const std::optional<int64_t> mode = items.number(LIBVOICE_PARAM_sdp_stream_mode)) {
        words.push_back(mode_words(*mode));
        items.take(LIBVOICE_PARAM_sdp_stream_mode);
    }
    const std::string sent = coding_words(items, kUpstream);
    const std::string received = coding_words(items, kDownstream);
    if (sent == received && !sent.empty()) {
        words.push_back(sent);
        return;
    }
    if (!sent.empty())
        words.push_back(fmt::format("sends {}", sent));
    if (!received.empty())
        words.push_back(fmt::format("receives {}", received));
}

// Losses are told even when there are none; of the other figures those that are not 0.
void statistics_add(Items &items, std::vector<std::string> &words) {
    packets_add(items, "sent {} packets ({} bytes)", LIBVOICE_PARAM_zil_call_stats_txpkts,
                LIBVOICE_PARAM_zil_call_stats_txbytes, words);
    packets_add(items, "received {} ({})", LIBVOICE_PARAM_zil_call_stats_rxpkts, LIBVOICE_PARAM_zil_call_stats_rxbytes,
                words);
    if (const std::optional<int64_t> lost = items.number(LIBVOICE_PARAM_zil_call_stats_lost)) {
        words.push_back(fmt::format("lost {}", *lost));
        items.take(LIBVOICE_PARAM_zil_call_stats_lost);
    }
    items.take_zeros();
}

} // namespace

std::vector<std::string> items_summary(const Record &record) {
    std::vector<std::string> words;
    Items items(record);
    if (record.kind == RecordKind::connection || record.kind == RecordKind::stream)
        media_add(items, words);
    if (record.identifier == LIBVOICE_EVENT_zil_call_stats)
        statistics_add(items, words);
    for (const Item *item : items.left()) {
        const std::string label = item_label(*item);
        const std::string value = item_words(*item);
        words.push_back(value.empty() ? label : label.empty() ? value : fmt::format("{} {}", label, value));
    }
    return words;
}

} // namespace voicectl
