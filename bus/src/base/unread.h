// SPDX-License-Identifier: MIT
// Packets that lie unread in a connected local socket of our own that is to be closed. With the socket the kernel
// closes the descriptors that they brought, which may take as long as their sender chose.
#ifndef KEX_UNREAD_H
#define KEX_UNREAD_H

namespace bus {

// Nothing can come any more. True: the socket closes at once, since no descriptors lie in it.
bool unread_is_harmless(int fd);
// From now on each packet brings something that is not bytes, also an empty one; the end does not.
void unread_show(int fd);

} // namespace bus

#endif
