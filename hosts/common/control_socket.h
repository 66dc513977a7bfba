// SPDX-License-Identifier: MIT
/**
 * @file control_socket.h
 * The local socket where a host takes commands beside its standard input. Who may connect is up to the folder that it
 * stands in: the file is its owner's and group's.
 */
#pragma once

#include "kex.h"

/**
 * Listens.
 * @param connected takes a connection, and closes it
 * @return no: errno says why. A socket file that is left from a process that was killed is taken over; anything else
 * stays
 */
bool control_socket_open(kex_t *bus, const char *path, void (*connected)(int client));
/** Takes the file away; connections stay. Harmless when nothing is open. */
void control_socket_close();
