// SPDX-License-Identifier: MIT
// The folder of a check, where its sockets are. Its name is `folder` of host.h.
#ifndef CONFORMANCE_FOLDER_H
#define CONFORMANCE_FOLDER_H

namespace conformance {

bool folder_make(); // false, with errno
void folder_remove();
// Removes folders that a run which was killed has left.
void folders_sweep();

} // namespace conformance

#endif
