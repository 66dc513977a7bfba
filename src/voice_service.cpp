// SPDX-License-Identifier: MIT
// Texts of the result codes, of the library and of the voice service, and the library's version.
#define TRACE_ZONE "GEN"
#include "libvoice_plugin.h"
#include "results.h"
#include "trace.h"

#define TEXT(number, name, text) text,
#define NO_TEXT(number) nullptr,
#define LIBRARY_NUMBER_IS_RIGHT(number, name, text) static_assert(LIBVOICE_##name == (number));
#define SERVICE_NUMBER_IS_RIGHT(number, name, text) static_assert(VOICE_SERVICE_##name == (number));
#define NOTHING(number)

VOICE_LIBRARY_RESULTS(LIBRARY_NUMBER_IS_RIGHT)
VOICE_SERVICE_RESULTS(SERVICE_NUMBER_IS_RIGHT, NOTHING)

extern "C" {

// The arrays' sizes come from the header: a row too many fails to compile, one too few the checks of the last slot
// below.
const char *const libvoice_result_texts[LIBVOICE_RESULT_TEXTS] = {VOICE_LIBRARY_RESULTS(TEXT)};
const char *const voice_service_result_texts[VOICE_SERVICE_RESULT_TEXTS] = {VOICE_SERVICE_RESULTS(TEXT, NO_TEXT)};

static_assert(LIBVOICE_ERR_PARAM_NO_SPACE == LIBVOICE_RESULT_TEXTS - 1);
static_assert(VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE == VOICE_SERVICE_RESULT_TEXTS - 1);

const char *libvoice_version() {
    return LIBVOICE_VERSION;
}

const char *libvoice_strerror(uint32_t code) {
    // Kept: "Uknowm" is how the system has always said it.
    return code < LIBVOICE_RESULT_TEXTS ? libvoice_result_texts[code] : "Uknowm error value";
}

const char *voice_service_strerror(uint32_t code) {
    if (code < VOICE_SERVICE_RESULT_TEXTS)
        return voice_service_result_texts[code];
    TRACE_WARNING("err (%d) is invalid", static_cast<int>(code));
    return "invalid error code";
}
}
