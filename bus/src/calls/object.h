// SPDX-License-Identifier: MIT
// The data model: objects, templates and their instances, and the functions that a class has.
#ifndef KEX_OBJECT_H
#define KEX_OBJECT_H

#include "bus/bus.h"

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

struct Function : Node<Function> {
    char *class_name; // "" for objects without one
    char *name;
    char **arguments; // as declared: "a" or "a|b"
    uint32_t argument_count;
    kex_function_t *entry;
};

object_t *object_find(kex_t *bus, const char *path, size_t length);
bool object_is_callable(const object_t *object);
// Whole path into a buffer of kMaxPath + 1 bytes.
void object_path(const object_t *object, char *path);
// A pinned object keeps its memory although it is deleted meanwhile.
void object_pin(object_t *object);
void object_unpin(object_t *object);
bool objects_open(kex_t *bus);
void objects_free(kex_t *bus);

// functions.cpp
const Function *function_find(kex_t *bus, const object_t *object, const char *name, size_t length);
// All names of the declared argument that has this one among them, or null.
const char *function_argument_names(const Function *function, const char *name, size_t length);
void functions_free(kex_t *bus);

} // namespace bus

struct object : bus::Node<object> {
    kex_t *bus;
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
