// SPDX-License-Identifier: MIT
// The tones of 13 countries.
#include "country_tones.h"

#include <string.h>

namespace {

struct country_row {
    char code[3];
    tone_cell cells[TONES]; // in the order of network_tone
};

constexpr bool kDisputed = true;
constexpr char kInformation[] = "950/330,1400/330,1800/330,0/1000";

// No table has these by country.
constexpr tone_cell kPayphone = {"1200/200,800/200,0/2000", 'D', false};
constexpr tone_cell kCallerWaiting = {"425/200,0/400,425/1000,0/3400", 'D', false};
constexpr tone_cell kConfirmation = {"425/100,0/100,425/100,0/100,425/100,0/1000", 'D', false};
constexpr tone_cell kHeld = {"425/300,0/300,425/300,0/3000", 'D', false};

constexpr country_row kCountries[] = {
    {"FR",
     {{"440", 'B', false},
      {"440/1500,0/3500", 'B', false},
      {"440/500,0/500", 'B', false},
      {"440/250,0/250", 'B', false},
      {kInformation, 'B', false},
      {"1400/500,0/15000", 'B', false},
      kPayphone,
      {"440/300,0/10000", 'B', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"!440/100,!0/100,!440/100,!0/100,!440/100,!0/100,!440/100,!0/100,!440/100,!0/100,!440/100,!0/100,440", 'B',
       false}}},
    {"DE",
     {{"425", 'A', false},
      {"425/1000,0/4000", 'A', false},
      {"425/480,0/480", 'A', false},
      {"425/240,0/240", 'A', false},
      {kInformation, 'A', false},
      {"1400/80,0/15000", 'B', false},
      kPayphone,
      {"!425/200,!0/200,!425/200,!0/1000,425/200,0/200,425/200,0/5000", 'A', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"400+425", 'B', false}}},
    {"GB",
     {{"350+440", 'A', false},
      {"400+450/400,0/200,400+450/400,0/2000", 'B', false},
      {"400/375,0/375", 'B', false},
      {"400/400,0/350,400@6/225,0/525", 'B', false},
      {kInformation, 'C', false},
      {"1400/500,0/60000", 'B', false},
      kPayphone,
      {"400/100,0/4000", 'B', kDisputed},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"350+440/750,440/750", 'B', false}}},
    {"US",
     {{"350+440", 'B', false},
      {"440+480/2000,0/4000", 'B', false},
      {"480+620/500,0/500", 'B', false},
      {"480+620/250,0/250", 'B', false},
      {kInformation, 'B', kDisputed},
      {"1400/500,0/15000", 'B', false},
      kPayphone,
      {"440/300,0/10000", 'B', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"!350+440/100,!0/100,!350+440/100,!0/100,!350+440/100,!0/100,!350+440/100,!0/100,!350+440/100,!0/100,!350+440/"
       "100,!0/100,350+440",
       'B', false}}},
    {"CH",
     {{"425", 'B', false},
      {"425/1000,0/4000", 'B', false},
      {"425/500,0/500", 'B', false},
      {"425/200,0/200", 'B', false},
      {kInformation, 'C', false},
      {"1400/80,0/15000", 'B', false},
      kPayphone,
      {"425/200,0/200,425/200,0/4000", 'B', kDisputed},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"340+425/1100,0/1100", 'B', false}}},
    {"SE",
     {{"425", 'B', false},
      {"425/1000,0/5000", 'B', false},
      {"425/250,0/250", 'B', false},
      {"425/250,0/750", 'B', false},
      {kInformation, 'B', false},
      {"1400/500,0/15000", 'B', false},
      kPayphone,
      {"425/200,0/500,425/200,0/9100", 'B', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"!425/100,!0/100,!425/100,!0/100,!425/100,!0/100,!425/100,!0/100,!425/100,!0/100,!425/100,!0/100,425", 'B',
       false}}},
    {"IT",
     {{"425/200,0/200,425/600,0/1000", 'B', kDisputed},
      {"425/1000,0/4000", 'B', false},
      {"425/500,0/500", 'B', false},
      {"425/200,0/200", 'B', false},
      {kInformation, 'B', false},
      {"1400/400,0/15000", 'B', false},
      kPayphone,
      {"425/400,0/100,425/250,0/100,425/150,0/14000", 'B', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"470/400,425/400", 'B', false}}},
    {"ES",
     {{"425", 'B', false},
      {"425/1500,0/3000", 'B', false},
      {"425/200,0/200", 'B', false},
      {"425/200,0/200,425/200,0/200,425/200,0/600", 'B', false},
      {kInformation, 'B', false},
      {"1400/500,0/15000", 'B', false},
      kPayphone,
      {"425/175,0/175,425/175,0/3500", 'B', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"425/500,0/50", 'B', false}}},
    {"NL",
     {{"425", 'B', false},
      {"425/1000,0/4000", 'B', false},
      {"425/500,0/500", 'B', false},
      {"425/250,0/250", 'B', false},
      {kInformation, 'B', false},
      {"1400/500,0/15000", 'B', false},
      kPayphone,
      {"425/500,0/9500", 'B', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"425/500,0/50", 'B', false}}},
    {"BE",
     {{"425", 'B', kDisputed},
      {"425/1000,0/3000", 'B', kDisputed},
      {"425/500,0/500", 'B', kDisputed},
      {"425/167,0/167", 'B', false},
      {"900/330,1400/330,1800/330,0/1000", 'B', false},
      {"1400/500,0/15000", 'B', false},
      kPayphone,
      {"1400/175,0/175,1400/175,0/3500", 'B', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"425/1000,0/250", 'B', false}}},
    {"AU",
     {{"413+438", 'B', kDisputed},
      {"400+450/400,0/200,400+450/400,0/2000", 'A', false},
      {"425/375,0/375", 'A', false},
      {"425/375,0/375,425@-10/375,0/375", 'B', false},
      {kInformation, 'B', false},
      {"!425/1000,!0/15000,425/360,0/15000", 'B', false},
      kPayphone,
      {"425/200,0/200,425/200,0/4400", 'B', kDisputed},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"413+438/100,0/40", 'B', false}}},
    {"JP",
     {{"400", 'B', false},
      {"400*16/1000,0/2000", 'B', kDisputed},
      {"400/500,0/500", 'B', false},
      {"400/500,0/500", 'B', false},
      {kInformation, 'B', false},
      {"1400/500,0/15000", 'B', false},
      kPayphone,
      {"400*16/500,0/8000", 'B', kDisputed},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"!400/100,!0/100,!400/100,!0/100,!400/100,!0/100,!400/100,!0/100,!400/100,!0/100,!400/100,!0/100,400", 'B',
       false}}},
    {"BR",
     {{"425", 'B', false},
      {"425/1000,0/4000", 'B', false},
      {"425/250,0/250", 'B', false},
      {"425/250,0/250,425/750,0/250", 'B', false},
      {kInformation, 'B', false},
      {"425/250,0/250", 'B', false},
      kPayphone,
      {"425/50,0/1000", 'B', false},
      kCallerWaiting,
      kConfirmation,
      kHeld,
      {"350+440", 'B', false}}},
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

const country_row *row_find(const char *country) {
    for (const country_row &row : kCountries)
        if (strcmp(row.code, country) == 0)
            return &row;
    return nullptr;
}

} // namespace

const tone_cell *country_tone(const char *country, network_tone tone) {
    const country_row *row = row_find(country);
    return &(row != nullptr ? row : kKnownFirst)->cells[tone];
}

bool country_has_tones(const char *country) {
    return row_find(country) != nullptr;
}

bool tone_cell_is_unproved(const tone_cell *cell) {
    return cell->is_disputed || cell->confidence > 'B';
}
