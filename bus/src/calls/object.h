// SPDX-License-Identifier: MIT
// The data model (kex.h and kex_host.h): a tree of named objects, templates and their instances. What is created or
// deleted takes effect at the commit.
#ifndef KEX_OBJECT_H
#define KEX_OBJECT_H

#include "calls/calls.h"

namespace bus {

enum class ObjectKind : uint8_t {
    plain,
    template_object,
    instance,
};

enum class ObjectState : uint8_t {
    live,
    to_be_created, // seen here, callable after the commit
    to_be_deleted, // still callable until the commit
    cancelled,     // created and deleted without a commit between them
};

// Makes an object at a path, and those above it that are missing. Null: the path is malformed or declared otherwise.
object_t *object_declare(Calls *calls, const char *path, const char *class_name, ObjectKind kind);
object_t *object_find(const Calls *calls, const char *path, size_t length);
bool object_is_callable(const object_t *object);
// Whole path into a buffer of kMaxPath + 1 bytes.
void object_path(const object_t *object, char *path);
// A pinned object keeps its memory although it is deleted meanwhile.
void object_pin(object_t *object);
void object_unpin(object_t *object);
bool objects_begin(Calls *calls);
void objects_end(Calls *calls);

} // namespace bus

struct object : bus::Node<object> {
    object_t *parent;
    char *name;
    char *class_name; // "": none
    bus::ObjectKind kind;
    bus::ObjectState state;
    bool declared; // else only made on the way to one that was
    bool detached; // deleted while pinned
    uint32_t pins;
    bus::List<object_t> children;
};

#endif
