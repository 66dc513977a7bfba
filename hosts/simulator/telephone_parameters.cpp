// SPDX-License-Identifier: MIT
// Parameters of a simulated telephone.
#include "telephone_parameters.h"

#include "console.h"
#include "identifiers.h"
#include "telephone.h"

#include <math.h>
#include <stdio.h>

namespace {

constexpr int32_t kSoftest = -60, kLoudest = 20; // dB
constexpr int32_t kAutomatic = -1;
constexpr int32_t kSlowest = 5, kFastest = 100; // ms in a second

struct range {
    int32_t least, most;
};

bool range_find(uint32_t parameter, range *found) {
    switch (parameter) {
    case LIBVOICE_PARAM_tdmc_gain:
    case LIBVOICE_PARAM_tdmc_rxgain:
        *found = {kSoftest, kLoudest};
        return true;
    case LIBVOICE_PARAM_ajb_jitmin:
    case LIBVOICE_PARAM_ajb_jitnom:
        *found = {kJitterLeastMs, kJitterMostMs};
        return true;
    case LIBVOICE_PARAM_ajb_enabjb:
        *found = {0, 1};
        return true;
    case LIBVOICE_PARAM_ajb_ar:
        *found = {kSlowest, kFastest};
        return true;
    default:
        return false;
    }
}

bool number_get(const telephone *one, uint32_t parameter, int32_t *number) {
    const jitter_settings *settings = &one->sound.settings;
    switch (parameter) {
    case LIBVOICE_PARAM_tdmc_gain:
        *number = one->gain;
        return true;
    case LIBVOICE_PARAM_tdmc_rxgain:
        *number = one->receive_gain;
        return true;
    case LIBVOICE_PARAM_zil_dect_pp_type:
        *number = one->handset_type;
        return one->handset_type >= 0;
    case LIBVOICE_PARAM_ajb_jitmin:
        *number = static_cast<int32_t>(settings->shortest_ms);
        return true;
    case LIBVOICE_PARAM_ajb_jitnom:
        *number = static_cast<int32_t>(settings->nominal_ms);
        return true;
    case LIBVOICE_PARAM_ajb_enabjb:
    case LIBVOICE_PARAM_ajb_type:
        *number = settings->adapts;
        return true;
    case LIBVOICE_PARAM_ajb_ar:
        *number = static_cast<int32_t>(settings->rate);
        return true;
    case LIBVOICE_PARAM_ajb_jitcur:
        *number = static_cast<int32_t>(audio_wait_ms(&one->sound));
        return true;
    default:
        return false;
    }
}

void number_set(telephone *one, uint32_t parameter, int32_t number) {
    jitter_settings *settings = &one->sound.settings;
    switch (parameter) {
    case LIBVOICE_PARAM_tdmc_gain:
        one->gain = number;
        one->sound.heard_factor = powf(10, static_cast<float>(number) / 20);
        break;
    case LIBVOICE_PARAM_tdmc_rxgain:
        one->receive_gain = number;
        one->sound.said_factor = powf(10, static_cast<float>(number) / 20);
        break;
    case LIBVOICE_PARAM_ajb_jitmin:
        settings->shortest_ms = static_cast<uint32_t>(number);
        break;
    case LIBVOICE_PARAM_ajb_jitnom:
        settings->nominal_ms = static_cast<uint32_t>(number);
        break;
    case LIBVOICE_PARAM_ajb_enabjb:
        settings->adapts = number != 0;
        break;
    case LIBVOICE_PARAM_ajb_ar:
        settings->rate = static_cast<uint32_t>(number);
        break;
    default:
        break;
    }
}

bool is_gain(uint32_t parameter) {
    return parameter == LIBVOICE_PARAM_tdmc_gain || parameter == LIBVOICE_PARAM_tdmc_rxgain;
}

} // namespace

bool telephone_get(void *line, uint32_t parameter, line_value_t *value) {
    const telephone *one = static_cast<const telephone *>(line);
    if (parameter != LIBVOICE_PARAM_zil_ep_dispname)
        return number_get(one, parameter, &value->number);
    value->text = one->name;
    return true;
}

bool telephone_set(void *line, uint32_t parameter, const line_value_t *value) {
    telephone *one = static_cast<telephone *>(line);
    if (parameter == LIBVOICE_PARAM_zil_ep_dispname) {
        snprintf(one->name, sizeof one->name, "%s", value->text);
        say("%d param %s=\"%s\"", one->number, identifier_name(parameter), one->name);
        return true;
    }
    range allowed;
    const int32_t number = value->number;
    if (!range_find(parameter, &allowed) || number < allowed.least || number > allowed.most ||
        (is_gain(parameter) && number == kAutomatic))
        return false;
    number_set(one, parameter, number);
    say("%d param %s=%d", one->number, identifier_name(parameter), number);
    return true;
}
