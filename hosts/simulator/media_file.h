// SPDX-License-Identifier: MIT
/**
 * @file media_file.h
 * A file of the RTP and RTCP packets of all lines, in pcapng, for Wireshark and for `voicectl capture --media-from`. A line is
 * never held up by it: packets wait in a buffer of 256 KiB for a thread that writes them; when a disk is slower than that they
 * are left out, and the next one that is written says how many.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

/** For the table of options of a plugin: "--media-file FILE". */
#define MEDIA_FILE_OPTION \
    { "media-file", "FILE", "write the RTP packets of all lines there, as pcapng", media_file_take }

/** Opens the file, which may be an older one of its kind. @return null, or what is wrong */
const char *media_file_take(const char *path);
/** Empties the file, if there is one, and begins to write. */
void media_file_begin();

/** One packet, as it was sent or received. */
struct media_file_packet {
    int socket;      // that it went through, connected
    const char *who; // whose it is, up to 31 bytes of it
    const char *host;
    bool control; // RTCP
    bool sent;
    uint64_t age; // nanoseconds ago
};

/** Writes a packet, if there is a file. When that has become impossible it is said once. */
void media_file_add(const media_file_packet *packet, const uint8_t *bytes, size_t size);
