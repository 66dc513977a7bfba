// SPDX-License-Identifier: MIT
#include "tap_fixture.h"

namespace support {

std::string line_of(const kex_tap_record_t &record) {
    static const char *const kinds[] = {"?",     "connected", "closed",  "call", "one-way",
                                        "reply", "refused",   "waiting", "lost", "watching"};
    std::string line = std::string(kinds[record.kind]) + " " + record.from.name + ">" + record.to.name;
    if (record.serial != 0)
        line += " #" + std::to_string(record.serial);
    if (*record.path != '\0')
        line += std::string(" ") + record.path + "." + record.function;
    for (uint32_t i = 0; i < record.argument_count; i++)
        line += std::string(" ") + record.argument_names[i] + "=" + show(record.arguments[i]);
    for (uint32_t i = 0; i < record.error_count; i++)
        line += " error " + std::to_string(record.error_codes[i]) + " " + record.error_descriptions[i] + ": " +
                record.error_infos[i];
    if (*record.text != '\0')
        line += std::string(" \"") + record.text + "\"";
    if (record.lost != 0)
        line += " lost " + std::to_string(record.lost);
    return line;
}

std::string packet_of(const kex_tap_t *tap) {
    uint32_t size = 4711;
    const void *bytes = kex_tap_packet(tap, &size);
    EXPECT_EQ(bytes == nullptr, size == 0);
    return {static_cast<const char *>(bytes), size};
}

} // namespace support
