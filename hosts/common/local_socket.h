// SPDX-License-Identifier: MIT
/**
 * @file local_socket.h
 * A listening local socket for commands or questions. Who may connect is up to the folder that it stands in: the file is its
 * owner's and group's.
 */
#pragma once

/**
 * Listens, without blocking, for streams.
 * @return the descriptor, the caller's; -1: errno says why. A socket file that is left from a process that was killed is taken
 * over; anything else stays.
 */
int local_socket_listen(const char *path);
