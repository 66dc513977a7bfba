// SPDX-License-Identifier: MIT
// How a step of traffic is shown: a line of the ladder for people, a line of JSON for programs.
#ifndef VOICECTL_SHOW_H
#define VOICECTL_SHOW_H

#include <string>

#include "traffic.h"

namespace voicectl {

// "14:03:07.482  fxs_a FXS1      --> voice_application  event  off hook  LIBVOICE_EVENT_al_of", without a line break.
// Colours are terminal sequences; without them the line is plain text.
std::string ladder_line(const Step &step, bool colour);

// One JSON object, without a line break. tool/README.md lists its fields.
std::string json_line(const Step &step);

} // namespace voicectl

#endif
