// SPDX-License-Identifier: MIT
// Texts of the result codes, of the library and of the voice service, and the library's version.
#define TRACE_ZONE gen
#include "libvoice_plugin.h"
#include "results.h"
#include "trace.h"

// The rows are in the order of their numbers, none left out: each has the place in its table that its number says.
#define LIBRARY_PLACE(number, name, text) kLibraryPlace_##name,
#define SERVICE_PLACE(number, name, text) kServicePlace_##name,
#define EMPTY_PLACE(number) kServicePlace_##number,
enum LibraryPlace { VOICE_LIBRARY_RESULTS(LIBRARY_PLACE) kLibraryPlaces };
enum ServicePlace { VOICE_SERVICE_RESULTS(SERVICE_PLACE, EMPTY_PLACE) kServicePlaces };
static_assert(kLibraryPlaces == LIBVOICE_RESULT_TEXTS && kServicePlaces == VOICE_SERVICE_RESULT_TEXTS);

#define TEXT(number, name, text) text,
#define NO_TEXT(number) nullptr,
#define LIBRARY_NUMBER_IS_RIGHT(number, name, text) \
    static_assert(LIBVOICE_##name == (number) && kLibraryPlace_##name == (number));
#define SERVICE_NUMBER_IS_RIGHT(number, name, text) \
    static_assert(VOICE_SERVICE_##name == (number) && kServicePlace_##name == (number));
#define NOTHING(number)

VOICE_LIBRARY_RESULTS(LIBRARY_NUMBER_IS_RIGHT)
VOICE_SERVICE_RESULTS(SERVICE_NUMBER_IS_RIGHT, NOTHING)

extern "C" {

const char *const libvoice_result_texts[LIBVOICE_RESULT_TEXTS] = {VOICE_LIBRARY_RESULTS(TEXT)};
const char *const voice_service_result_texts[VOICE_SERVICE_RESULT_TEXTS] = {VOICE_SERVICE_RESULTS(TEXT, NO_TEXT)};

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
