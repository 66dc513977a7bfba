// SPDX-License-Identifier: MIT
// Text forms of identifiers that stay inside the library.
#ifndef VOICE_MESSAGE_H
#define VOICE_MESSAGE_H

#include <stdint.h>

namespace voice {

// The class word of dumps: "sig", "evt" or "prop"; "????" and one level-100 trace message for any other class. Constant
// text.
const char *libvoice_class_str(uint32_t id);

} // namespace voice

#endif
