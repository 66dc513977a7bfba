// SPDX-License-Identifier: MIT
// Linked lists that need no memory of their own: an item carries its links. A zero-filled list is empty.
#ifndef KEX_LIST_H
#define KEX_LIST_H

#include "base/memory.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace bus {

// An item may stand in one list per base of this kind.
template <class T>
struct Node {
    T *next;
    T *prev;
    bool listed;
};

template <class T>
struct List {
    T *first;
    T *last;
    uint32_t count;

    // The item that a loop stands at may not be taken out.
    struct Iterator {
        T *item;
        T *operator*() const { return item; }
        void operator++() { item = after(item); }
        bool operator!=(const Iterator &other) const { return item != other.item; }
    };
    Iterator begin() const { return {first}; }
    Iterator end() const { return {nullptr}; }

    static Node<T> *node(T *item) { return static_cast<Node<T> *>(item); }
    static T *after(T *item) { return node(item)->next; }
    static bool holds(T *item) { return node(item)->listed; }

    // Null as place: at the end.
    void insert_before(T *place, T *item) {
        T *before = place != nullptr ? node(place)->prev : last;
        node(item)->next = place;
        node(item)->prev = before;
        node(item)->listed = true;
        (before != nullptr ? node(before)->next : first) = item;
        (place != nullptr ? node(place)->prev : last) = item;
        count++;
    }

    void push(T *item) { insert_before(nullptr, item); }

    // Harmless for an item that stands in no list.
    void remove(T *item) {
        Node<T> *links = node(item);
        if (!links->listed)
            return;
        (links->prev != nullptr ? node(links->prev)->next : first) = links->next;
        (links->next != nullptr ? node(links->next)->prev : last) = links->prev;
        *links = {};
        count--;
    }

    T *pop() {
        T *item = first;
        if (item != nullptr)
            remove(item);
        return item;
    }
};

// A zero-filled object, or null. All of the bus's structures are valid when zero-filled; free() releases them.
template <class T>
T *make() {
    void *memory =
        memory_take(sizeof(T)); // calloc() takes none of the blocks that are given back and taken again quickly
    return memory != nullptr ? static_cast<T *>(memset(memory, 0, sizeof(T))) : nullptr;
}

} // namespace bus

#endif
