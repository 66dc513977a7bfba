// SPDX-License-Identifier: MIT
/**
 * @file media_socket.h
 * The two sockets of a session, which the application has opened and connected.
 */
#pragma once

#include "kex.h"

#include <stddef.h>
#include <stdint.h>

/** Whether it is a connected UDP socket. Anything else that came as a descriptor (a pipe, a socket of another kind)
 *  would keep the loop awake once it hangs up. */
bool media_socket_is_usable(int fd);
/** Has the system note when each packet comes. Without that, the moment of reading counts. */
void media_socket_begin(int fd);
/** Reads what has arrived, at most so many packets as fit into a turn. A socket that was shut down is watched no more.
 *  @param receive  gets each packet, and how many nanoseconds ago it came */
void media_socket_read(kex_t *bus, int fd, void *userdata,
                       void (*receive)(void *userdata, const uint8_t *bytes, size_t size, uint64_t age));
/** Sends a packet. @return whether it left */
bool media_socket_send(int fd, const uint8_t *bytes, size_t size);
/** Stops watching a socket and closes it; -1: nothing to do. */
void media_socket_close(kex_t *bus, int fd);
