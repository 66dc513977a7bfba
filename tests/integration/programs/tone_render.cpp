// SPDX-License-Identifier: MIT
// Writes down what a simulated telephone hears of each tone of each country, or of those that the further arguments name,
// faster than it sounds: to the file of the first argument, for each a line "FR dial-tone 8000" with the number of samples, and these, 16 bits each, of the machine's order.
// What the telephone says it hears is printed, behind a line "FR dial-tone".
#include "country_tones.h"
#include "fake_line.h"
#include "telephone.h"

#include "libvoice_plugin.h"

#include <stdio.h>
#include <string.h>
#include <vector>

// A line that nobody hears of.
bool line_report_off_hook(line_t *) {
    return true;
}
bool line_report_on_hook(line_t *) {
    return true;
}
bool line_report_flash(line_t *) {
    return true;
}
bool line_report_statistics(line_t *, uint32_t, const line_statistics_t *) {
    return true;
}
int line_number(const line_t *line) {
    return line->number;
}
bool line_is_registered(const line_t *line) {
    return line->registered;
}

namespace {

constexpr const char *kCountries[] = {"FR", "DE", "GB", "US", "CH", "SE", "IT", "ES", "NL", "BE", "AU", "JP", "BR"};
constexpr uint32_t kSignals[] = {
    LIBVOICE_SIGNAL_cg_dt,  LIBVOICE_SIGNAL_cg_rt,      LIBVOICE_SIGNAL_cg_bt,    LIBVOICE_SIGNAL_cg_ct,
    LIBVOICE_SIGNAL_cg_sit, LIBVOICE_SIGNAL_cg_wt,      LIBVOICE_SIGNAL_cg_prt,   LIBVOICE_SIGNAL_cg_cw,
    LIBVOICE_SIGNAL_cg_cr,  LIBVOICE_SIGNAL_srvtn_conf, LIBVOICE_SIGNAL_srvtn_ht, LIBVOICE_SIGNAL_srvtn_mwt,
};
constexpr uint32_t kContinuous = 3000, kMore = 2000; // ms

uint64_t now; // ns
std::vector<int16_t> heard;

void step(void *, uint64_t, const int16_t *samples, const int16_t *) {
    heard.insert(heard.end(), samples, samples + kStepSamples);
}

void run(uint32_t ms) {
    for (uint32_t over = 0; over < ms; over += 2 * kStepMs) {
        now += 2 * kStepMs * uint64_t{1000000};
        sampling_clock_advance();
    }
}

// A period and what follows in two seconds; three seconds of what does not end.
uint32_t time_of(const tone_cell *cell) {
    const tone_pattern pattern = tone_pattern_read(cell->text);
    uint32_t period = 0;
    for (uint32_t i = 0; i < pattern.count; i++)
        period += pattern.elements[i].ms;
    return period + (pattern.elements[pattern.count - 1].ms > 0 ? kMore : kContinuous);
}

void render(telephone *phone, const line_driver_t *driver, const char *country, uint32_t signal, FILE *file) {
    const network_tone tone = network_tone_of(signal);
    const line_tone_t order = {signal, 0, nullptr, 0, 0};
    telephone_lift(phone);
    printf("%s %s\n", country, network_tone_word(tone));
    heard.clear();
    driver->play(phone, &order);
    run(time_of(country_tone(country, tone)));
    fprintf(file, "%s %s %zu\n", country, network_tone_word(tone), heard.size());
    fwrite(heard.data(), sizeof heard[0], heard.size(), file);
    telephone_hang_up(phone);
    run(1000);
}

bool is_wanted(int count, char **words, const char *word) {
    for (int i = 2; i < count; i++)
        if (strcmp(words[i], word) == 0)
            return true;
    return count == 2;
}

} // namespace

int main(int count, char **words) {
    static telephone phone;
    line_t line = {1, true};
    const line_driver_t driver = telephone_driver();
    const sound_sink sink = {&phone, step, nullptr};
    FILE *file = count >= 2 ? fopen(words[1], "wb") : nullptr;
    if (file == nullptr)
        return 2;
    sampling_clock_replace([] { return now; });
    audio_begin(nullptr, "tone_render");
    telephone_begin(&phone, &line, 1000);
    audio_add_sink(&phone.sound, &sink);
    for (const char *country : kCountries) {
        driver.registered(&phone, country);
        for (uint32_t signal : kSignals)
            if (is_wanted(count, words, network_tone_word(network_tone_of(signal))))
                render(&phone, &driver, country, signal, file);
    }
    return fclose(file) == 0 ? 0 : 1;
}
