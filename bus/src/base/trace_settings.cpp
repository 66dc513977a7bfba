// SPDX-License-Identifier: MIT
// Implements trace_settings.h.
#include "base/trace_settings.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

namespace bus {

Settings settings;

namespace {

bool variable_is_on(const char *name) {
    const char *value = getenv(name);
    return value != nullptr && (strcmp(value, "1") == 0 || strcmp(value, "on") == 0 || strcmp(value, "yes") == 0 ||
                                strcmp(value, "true") == 0);
}

// Anything but a number up to the end of its word leaves *level as it was: a slip in the environment must not silence
// the errors.
bool level_read(const char *text, const char *word_end, int *level) {
    char *end;
    errno = 0;
    long number = strtol(text, &end, 10);
    if (end == text || end != word_end || errno != 0 || number < INT_MIN || number > INT_MAX)
        return false;
    *level = static_cast<int>(number);
    return true;
}

// "LIBV=500,SIGNAL=400". What does not read so is passed over.
void zones_read(const char *text) {
    while (*text != '\0' && settings.zone_count < kMaxZones) {
        size_t length = strcspn(text, ",");
        size_t name_length = strcspn(text, "=,");
        int level;
        if (name_length < length && name_length > 0 && name_length < kMaxZoneName &&
            level_read(text + name_length + 1, text + length, &level)) {
            Zone &zone = settings.zones[settings.zone_count++];
            memcpy(zone.name, text, name_length);
            zone.level = level;
            settings.highest = zone.level > settings.highest ? zone.level : settings.highest;
        }
        text += length;
        text += *text == ',';
    }
}

} // namespace

int zone_level(const char *zone) {
    for (uint32_t i = 0; zone != nullptr && i < settings.zone_count; i++) {
        if (strcmp(settings.zones[i].name, zone) == 0)
            return settings.zones[i].level;
    }
    return settings.level;
}

void trace_settings_read() {
    settings = Settings{};
    settings.configured = true;
    const char *level = getenv("ZIL_TRACE_LEVEL");
    if (level != nullptr)
        level_read(level, level + strlen(level), &settings.level);
    settings.highest = settings.level;
    const char *zones = getenv("ZIL_TRACE_ZONES");
    if (zones != nullptr)
        zones_read(zones);
    const char *output = getenv("ZIL_TRACE_OUTPUT");
    settings.to_syslog = output != nullptr && strcmp(output, "syslog") == 0;
    settings.time = variable_is_on("ZIL_TRACE_TIME");
    settings.colour = variable_is_on("ZIL_TRACE_COLOR");
}

} // namespace bus
