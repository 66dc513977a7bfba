// SPDX-License-Identifier: MIT
// The tones of 13 countries.
#include "country_tones.h"

#include "libvoice_plugin.h"

#include <string.h>

namespace {

struct country_row {
    char code[3];
    tone_cell cells[TONES]; // dial, ringing, busy, congestion, call waiting, special information
};

constexpr bool kDisputed = true;
constexpr char kInformation[] = "950/330,1400/330,1800/330,0/1000";

constexpr country_row kCountries[] = {
    {"FR",
     {{"440", 'B', false},
      {"440/1500,0/3500", 'B', false},
      {"440/500,0/500", 'B', false},
      {"440/250,0/250", 'B', false},
      {"440/300,0/10000", 'B', false},
      {kInformation, 'B', false}}},
    {"DE",
     {{"425", 'A', false},
      {"425/1000,0/4000", 'A', false},
      {"425/480,0/480", 'A', false},
      {"425/240,0/240", 'A', false},
      {"425/200,0/200,425/200,0/5000", 'A', false}, // the first pause is 1 s
      {kInformation, 'A', false}}},
    {"GB",
     {{"350+440", 'A', false},
      {"400+450/400,0/200,400+450/400,0/2000", 'B', false},
      {"400/375,0/375", 'B', false},
      {"400/400,0/350,400@6/225,0/525", 'B', false},
      {"400/100,0/4000", 'B', kDisputed},
      {kInformation, 'C', false}}},
    {"US",
     {{"350+440", 'B', false},
      {"440+480/2000,0/4000", 'B', false},
      {"480+620/500,0/500", 'B', false},
      {"480+620/250,0/250", 'B', false},
      {"440/300,0/10000", 'B', false},
      {kInformation, 'B', kDisputed}}}, // networks differ by the cause
    {"CH",
     {{"425", 'B', false},
      {"425/1000,0/4000", 'B', false},
      {"425/500,0/500", 'B', false},
      {"425/200,0/200", 'B', false},
      {"425/200,0/200,425/200,0/4000", 'B', kDisputed},
      {kInformation, 'C', false}}},
    {"SE",
     {{"425", 'B', false},
      {"425/1000,0/5000", 'B', false},
      {"425/250,0/250", 'B', false},
      {"425/250,0/750", 'B', false},
      {"425/200,0/500,425/200,0/9100", 'B', false},
      {kInformation, 'B', false}}},
    {"IT",
     {{"425/200,0/200,425/600,0/1000", 'B', kDisputed},
      {"425/1000,0/4000", 'B', false},
      {"425/500,0/500", 'B', false},
      {"425/200,0/200", 'B', false},
      {"425/400,0/100,425/250,0/100,425/150,0/14000", 'B', false},
      {kInformation, 'B', false}}},
    {"ES",
     {{"425", 'B', false},
      {"425/1500,0/3000", 'B', false},
      {"425/200,0/200", 'B', false},
      {"425/200,0/200,425/200,0/200,425/200,0/600", 'B', false},
      {"425/175,0/175,425/175,0/3500", 'B', false},
      {kInformation, 'B', false}}},
    {"NL",
     {{"425", 'B', false},
      {"425/1000,0/4000", 'B', false},
      {"425/500,0/500", 'B', false},
      {"425/250,0/250", 'B', false},
      {"425/500,0/9500", 'B', false},
      {kInformation, 'B', false}}},
    {"BE",
     {{"425", 'B', kDisputed},
      {"425/1000,0/3000", 'B', kDisputed},
      {"425/500,0/500", 'B', kDisputed},
      {"425/167,0/167", 'B', false},
      {"1400/175,0/175,1400/175,0/3500", 'B', false},
      {"900/330,1400/330,1800/330,0/1000", 'B', false}}},
    {"AU",
     {{"413+438", 'B', kDisputed},
      {"400+450/400,0/200,400+450/400,0/2000", 'A', false},
      {"425/375,0/375", 'A', false},
      {"425/375,0/375,425@-10/375,0/375", 'B', false},
      {"425/200,0/200,425/200,0/4400", 'B', kDisputed},
      {kInformation, 'B', false}}},
    {"JP",
     {{"400", 'B', false},
      {"400*16/1000,0/2000", 'B', kDisputed},
      {"400/500,0/500", 'B', false},
      {"400/500,0/500", 'B', false},
      {"400*16/500,0/8000", 'B', kDisputed},
      {kInformation, 'B', false}}},
    {"BR",
     {{"425", 'B', false},
      {"425/1000,0/4000", 'B', false},
      {"425/250,0/250", 'B', false},
      {"425/250,0/250,425/750,0/250", 'B', false},
      {"425/50,0/1000", 'B', false},
      {kInformation, 'B', false}}},
};
constexpr const country_row *kKnownFirst = &kCountries[1];

constexpr bool all_are_tones() {
    for (const country_row &row : kCountries)
        for (const tone_cell &cell : row.cells)
            if (tone_pattern_read(cell.text).count == 0 || cell.confidence < 'A' || cell.confidence > 'D')
                return false;
    return true;
}
static_assert(all_are_tones());

constexpr struct {
    uint32_t signal;
    const char *name;
} kTones[TONES] = {
    {LIBVOICE_SIGNAL_cg_dt, "dial"},         {LIBVOICE_SIGNAL_cg_rt, "ringing"},
    {LIBVOICE_SIGNAL_cg_bt, "busy"},         {LIBVOICE_SIGNAL_cg_ct, "congestion"},
    {LIBVOICE_SIGNAL_cg_cw, "call-waiting"}, {LIBVOICE_SIGNAL_cg_sit, "special-information"},
};

} // namespace

const char *network_tone_name(network_tone tone) {
    return kTones[tone].name;
}

network_tone network_tone_of(uint32_t signal) {
    for (uint32_t tone = 0; tone < TONES; tone++)
        if (kTones[tone].signal == signal)
            return static_cast<network_tone>(tone);
    return TONES;
}

const tone_cell *country_tone(const char *country, network_tone tone) {
    for (const country_row &row : kCountries)
        if (strcmp(row.code, country) == 0)
            return &row.cells[tone];
    return &kKnownFirst->cells[tone];
}

bool tone_cell_is_unproved(const tone_cell *cell) {
    return cell->is_disputed || cell->confidence > 'B';
}
