// SPDX-License-Identifier: MIT
// Small owners of what the bus hands over with a call: each knows its own release call.
#ifndef VOICE_OWNED_H
#define VOICE_OWNED_H

#include <stdlib.h> // free
#include <unistd.h> // close

#include "libvoice_plugin.h"

namespace voice {

// A text from the bus, or null.
class Text {
public:
    Text() = default;
    ~Text() { free(text_); }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;

    char **out() { return &text_; }
    const char *get() const { return text_; }

private:
    char *text_ = nullptr;
};

// Bytes from the bus, or null. give_away() is for callbacks that keep them.
class Bytes {
public:
    Bytes() = default;
    ~Bytes() { free(data_); }
    Bytes(const Bytes &) = delete;
    Bytes &operator=(const Bytes &) = delete;

    void **out() { return &data_; }
    uint32_t *out_length() { return &length_; }
    uint8_t *data() const { return static_cast<uint8_t *>(data_); }
    void *block() const { return data_; }
    uint32_t length() const { return length_; }
    void *give_away() {
        void *data = data_;
        data_ = nullptr;
        return data;
    }

private:
    void *data_ = nullptr;
    uint32_t length_ = 0;
};

// A list from the bus, or null. Descriptors in it that nobody read are closed with it.
class List {
public:
    List() = default;
    ~List() { release(); }
    List(const List &) = delete;
    List &operator=(const List &) = delete;

    variant_list_t **out() { return &list_; }
    const variant_list_t *get() const { return list_; }
    void release() {
        if (list_)
            variant_list_destroy(list_);
        list_ = nullptr;
    }

private:
    variant_list_t *list_ = nullptr;
};

// The descriptor array of a media call: ten places, -1 as none. What it took or opened is closed when the call fails
// before its callback is reached; from the callback on the descriptors are the callback's.
class Descriptors {
public:
    Descriptors() = default;
    ~Descriptors() {
        for (const int32_t fd : fds_)
            if (fd >= 0)
                close(fd);
    }
    Descriptors(const Descriptors &) = delete;
    Descriptors &operator=(const Descriptors &) = delete;

    // Takes the descriptor at the same place of the list; what exceeds the ten places is skipped and stays the list's.
    int32_t take(const variant_list_t *list, int index) {
        return fds_[index] = variant_fd(variant_list_at(list, static_cast<uint32_t>(index)));
    }
    int32_t *place(int index) { return &fds_[index]; }

    // The array for a callback, which owns the descriptors from here on.
    struct HandedOver {
        int32_t fds[LIBVOICE_DESCRIPTORS];
    };
    HandedOver hand_over() {
        HandedOver handed;
        for (int i = 0; i < LIBVOICE_DESCRIPTORS; ++i) {
            handed.fds[i] = fds_[i];
            fds_[i] = -1;
        }
        return handed;
    }

private:
    int32_t fds_[LIBVOICE_DESCRIPTORS] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
};

} // namespace voice

#endif
