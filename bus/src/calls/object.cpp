// SPDX-License-Identifier: MIT
// Implements object.h.
#include "calls/object.h"

#include <string.h>

using namespace bus;

namespace {

object_t *object_create(const char *name, size_t length, const char *class_name) {
    object_t *object = make<object_t>();
    if (object == nullptr)
        return nullptr;
    object->name = memory_take_text(name, length);
    object->class_name = memory_take_text(class_name);
    if (object->name == nullptr || object->class_name == nullptr) {
        free(object->name);
        free(object->class_name);
        free(object);
        return nullptr;
    }
    return object;
}

void object_free(object_t *object) {
    free(object->name);
    free(object->class_name);
    free(object);
}

// Takes an object and all below it out of the tree. Pinned ones keep their memory until they are unpinned.
void object_remove(object_t *object) {
    while (object->children.first != nullptr)
        object_remove(object->children.first);
    if (object->parent != nullptr)
        object->parent->children.remove(object);
    object->parent = nullptr;
    if (object->pins > 0)
        object->detached = true;
    else
        object_free(object);
}

object_t *object_find_child(const object_t *parent, const char *name, size_t length) {
    for (object_t *child : parent->children) {
        if (strncmp(child->name, name, length) == 0 && child->name[length] == '\0')
            return child;
    }
    return nullptr;
}

void object_attach(object_t *parent, object_t *child) {
    child->parent = parent;
    parent->children.push(child);
}

size_t object_path_length(const object_t *object) {
    size_t length = 0;
    for (; object->parent != nullptr; object = object->parent)
        length += strlen(object->name) + (object->parent->parent != nullptr ? 1 : 0);
    return length;
}

bool name_is_valid(const char *name, size_t length) {
    return length > 0 && memchr(name, '.', length) == nullptr;
}

// Whether the object is part of a template's pattern rather than of an instance.
bool object_is_pattern(const object_t *object) {
    for (; object != nullptr; object = object->parent) {
        if (object->kind != ObjectKind::plain)
            return object->kind == ObjectKind::template_object;
    }
    return false;
}

// Copies what a template consists of, without its instances, under an instance. False: no memory, or a path would have
// more bytes than there is room for.
bool object_clone_children(const object_t *from, object_t *to, size_t room) {
    for (object_t *child : from->children) {
        if (child->kind == ObjectKind::instance)
            continue;
        const size_t more = 1 + strlen(child->name);
        object_t *copy = more <= room ? object_create(child->name, more - 1, child->class_name) : nullptr;
        if (copy == nullptr)
            return false;
        copy->kind = child->kind;
        copy->declared = child->declared;
        object_attach(to, copy);
        if (!object_clone_children(child, copy, room - more))
            return false;
    }
    return true;
}

// Names are checked before anything is made, so that a malformed path leaves nothing behind.
bool path_is_valid(const char *path) {
    if (strnlen(path, kMaxPath + 1) > kMaxPath || strcmp(path, KEX_BUILTIN_PATH) == 0)
        return false;
    for (const char *part = path;; part++) {
        size_t length = text_length_until(part, '.');
        if (length == 0)
            return false;
        part += length;
        if (*part == '\0')
            return true;
    }
}

// The object at a path, made with those above it if need be. Null: no memory.
object_t *object_make_path(object_t *root, const char *path) {
    object_t *object = root;
    for (const char *part = path;; part++) {
        size_t length = text_length_until(part, '.');
        object_t *child = object_find_child(object, part, length);
        if (child == nullptr) {
            child = object_create(part, length, "");
            if (child == nullptr)
                return nullptr;
            object_attach(object, child);
        }
        object = child;
        part += length;
        if (*part == '\0')
            return object;
    }
}

bool object_is_deleted(const object_t *object) {
    return object->state == ObjectState::to_be_deleted || object->state == ObjectState::cancelled;
}

// Deletions first: what is below a deleted object goes with it.
void object_apply(object_t *object) {
    if (object_is_deleted(object)) {
        object_remove(object);
        return;
    }
    object->state = ObjectState::live;
    for (object_t *child = object->children.first; child != nullptr;) {
        object_t *following = List<object_t>::after(child);
        object_apply(child);
        child = following;
    }
}

} // namespace

namespace bus {

object_t *object_declare(Calls *calls, const char *path, const char *class_name, ObjectKind kind) {
    object_t *object = path_is_valid(path) ? object_make_path(calls->root, path) : nullptr;
    if (object == nullptr)
        return nullptr;
    const char *wanted_class = class_name != nullptr ? class_name : "";
    if (object->declared)
        return object->kind == kind && strcmp(object->class_name, wanted_class) == 0 ? object : nullptr;
    char *copy = object->kind == ObjectKind::plain ? memory_take_text(wanted_class) : nullptr;
    if (copy == nullptr)
        return nullptr;
    free(object->class_name);
    object->class_name = copy;
    object->kind = kind;
    object->declared = true;
    return object;
}

object_t *object_find(const Calls *calls, const char *path, size_t length) {
    if (length == 0 || length > kMaxPath || memchr(path, '\0', length) != nullptr)
        return nullptr;
    object_t *object = calls->root;
    const char *end = path + length;
    while (object != nullptr) {
        const void *dot = memchr(path, '.', static_cast<size_t>(end - path));
        const char *part_end = dot != nullptr ? static_cast<const char *>(dot) : end;
        object = object_find_child(object, path, static_cast<size_t>(part_end - path));
        if (part_end == end)
            break;
        path = part_end + 1;
    }
    return object;
}

bool object_is_callable(const object_t *object) {
    for (const object_t *above = object; above != nullptr; above = above->parent) {
        if (above->state == ObjectState::to_be_created || above->state == ObjectState::cancelled)
            return false;
    }
    return !object_is_pattern(object);
}

void object_path(const object_t *object, char *path) {
    size_t at = object_path_length(object);
    path[at] = '\0';
    for (; object->parent != nullptr; object = object->parent) {
        size_t length = strlen(object->name);
        at -= length;
        memcpy(path + at, object->name, length);
        if (at > 0)
            path[--at] = '.';
    }
}

void object_pin(object_t *object) {
    object->pins++;
}

void object_unpin(object_t *object) {
    object->pins--;
    if (object->detached && object->pins == 0)
        object_free(object);
}

bool objects_begin(Calls *calls) {
    calls->root = object_create("", 0, "");
    return calls->root != nullptr;
}

void objects_end(Calls *calls) {
    if (calls->root != nullptr)
        object_remove(calls->root);
    calls->root = nullptr;
}

} // namespace bus

const char *object_name(object_t *object, uint32_t) {
    return object != nullptr ? object->name : nullptr;
}

object_t *object_getObject(object_t *parent, const char *name, uint32_t, void *) {
    return parent != nullptr && name != nullptr ? object_find_child(parent, name, strlen(name)) : nullptr;
}

object_t *object_createInstance(object_t *template_object, uint32_t, const char *name) {
    if (template_object == nullptr || name == nullptr || template_object->kind != ObjectKind::template_object)
        return nullptr;
    size_t length = strlen(name);
    if (!name_is_valid(name, length) || object_find_child(template_object, name, length) != nullptr)
        return nullptr;
    if (object_is_pattern(template_object->parent))
        return nullptr;
    const size_t path_length = object_path_length(template_object) + 1 + length;
    if (path_length > kMaxPath)
        return nullptr;
    object_t *instance = object_create(name, length, template_object->class_name);
    if (instance == nullptr)
        return nullptr;
    instance->kind = ObjectKind::instance;
    instance->state = ObjectState::to_be_created;
    if (!object_clone_children(template_object, instance, kMaxPath - path_length)) {
        object_remove(instance);
        return nullptr;
    }
    object_attach(template_object, instance);
    return instance;
}

int object_delete(object_t *object) {
    if (object == nullptr || object->kind != ObjectKind::instance || object->detached || object_is_deleted(object))
        return 0;
    bool committed = object->state == ObjectState::live;
    object->state = committed ? ObjectState::to_be_deleted : ObjectState::cancelled;
    return 1;
}

int object_commit(object_t *object) {
    if (object == nullptr || object->detached)
        return 0;
    object_apply(object);
    return 1;
}
