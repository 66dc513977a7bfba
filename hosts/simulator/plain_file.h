// SPDX-License-Identifier: MIT
/**
 * @file plain_file.h
 * Files that a user names: opened without waiting, and only if they are what is wanted. A device is not even opened,
 * since that alone may set it to work.
 */
#pragma once

enum file_kind {
    FILE_PLAIN,
    FILE_PLAIN_OR_PIPE, // with a name, and with somebody who reads it
};

/** Opens a file, with the flags of open(2), which is not let wait. @return null, or why not, a sentence without its
 *  name that is valid until the next call: "is a folder" */
const char *plain_file_open(const char *path, int flags, file_kind wanted, int *fd);
/** Keeps other writers of this kind off until it is closed. @return no: one has it already */
bool plain_file_lock(int fd);
