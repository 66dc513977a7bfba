// SPDX-License-Identifier: MIT
// Closing what peers had a hand in. The last close of a file may take as long as whoever made it chose: a stream socket
// that lingers, a local socket in whose queue such a one lies, a file of a file system that does not answer or that holds
// much, a serial line that drains. Nothing of that may hold up a turn.
#ifndef KEX_CLOSER_H
#define KEX_CLOSER_H

#include <stdint.h>

namespace bus {

// Those that have just come from a peer: from now on no close of theirs lingers, whoever closes them. Where somebody
// holds the lock of such a socket it is closed, and -1 stands in its place.
void foreign_descriptors_admit(int *fds, uint32_t count);
// Closes a descriptor that came from a peer: here when its close is known to return at once, else beside the loop.
void foreign_descriptor_close(int fd);
// The same of several at a time, which costs less where they have numbers in a row. Below 0: there is none.
void foreign_descriptors_close_each(const int *fds, uint32_t count);
inline void foreign_descriptors_close(const int *fds, uint32_t count) {
    if (count > 0) // most messages have none: that is not worth a call
        foreign_descriptors_close_each(fds, count);
}
// Closes a connected local socket of our own. What lies unread in it is taken out first, beside the loop where it
// brings descriptors.
void connected_socket_close(int fd);
// How many descriptors are being closed beside the loop; and how many of them came from a process.
uint32_t closings_pending();
uint32_t closings_pending_of(int32_t process_id);
// So many of all processes together, no more than its share of each counted, that there is no room for those of anybody
// new.
bool closings_are_many();
// From whose work it comes what foreign_descriptor_close() closes from now on; 0: nobody's in particular. Answers what
// held before.
int32_t closings_charge(int32_t process_id);

} // namespace bus

#endif
