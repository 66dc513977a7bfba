// SPDX-License-Identifier: MIT
// The data model (kex.h and kex_host.h): a tree of named objects; what is created or deleted takes effect at the
// commit.
#include "calls/object.h"

#include <string.h>

using namespace bus;

namespace {

object_t *create(kex_t *bus, const char *name, size_t length, const char *class_name) {
    object_t *object = make<object_t>();
    if (object == nullptr)
        return nullptr;
    object->bus = bus;
    object->name = strndup(name, length);
    object->class_name = strdup(class_name);
    if (object->name == nullptr || object->class_name == nullptr) {
        free(object->name);
        free(object->class_name);
        free(object);
        return nullptr;
    }
    return object;
}

void release(object_t *object) {
    free(object->name);
    free(object->class_name);
    free(object);
}

// Takes an object and all below it out of the tree. Pinned ones keep their memory until they are unpinned.
void destroy(object_t *object) {
    while (object->children.first != nullptr)
        destroy(object->children.first);
    if (object->parent != nullptr)
        object->parent->children.remove(object);
    object->parent = nullptr;
    if (object->pins > 0)
        object->detached = true;
    else
        release(object);
}

object_t *find_child(const object_t *parent, const char *name, size_t length) {
    for (object_t *child = parent->children.first; child != nullptr; child = List<object_t>::after(child)) {
        if (strncmp(child->name, name, length) == 0 && child->name[length] == '\0')
            return child;
    }
    return nullptr;
}

void attach(object_t *parent, object_t *child) {
    child->parent = parent;
    parent->children.push(child);
}

size_t path_length(const object_t *object) {
    size_t length = 0;
    for (; object->parent != nullptr; object = object->parent)
        length += strlen(object->name) + (object->parent->parent != nullptr ? 1 : 0);
    return length;
}

bool is_good_name(const char *name, size_t length) {
    return length > 0 && memchr(name, '.', length) == nullptr;
}

// Whether the object is part of a template's pattern rather than of an instance.
bool is_pattern(const object_t *object) {
    for (; object != nullptr; object = object->parent) {
        if (object->kind != ObjectKind::plain)
            return object->kind == ObjectKind::template_object;
    }
    return false;
}

// Copies what a template consists of, without its instances, under an instance.
bool clone_children(const object_t *from, object_t *to) {
    for (object_t *child = from->children.first; child != nullptr; child = List<object_t>::after(child)) {
        if (child->kind == ObjectKind::instance)
            continue;
        object_t *copy = create(from->bus, child->name, strlen(child->name), child->class_name);
        if (copy == nullptr)
            return false;
        copy->kind = child->kind;
        copy->declared = child->declared;
        attach(to, copy);
        if (!clone_children(child, copy))
            return false;
    }
    return true;
}

object_t *declare(kex_t *bus, const char *path, const char *class_name, ObjectKind kind) {
    if (bus == nullptr || path == nullptr || strnlen(path, kMaxPath + 1) > kMaxPath)
        return nullptr;
    if (strcmp(path, KEX_BUILTIN_PATH) == 0)
        return nullptr;
    // Names are checked before anything is made, so that a malformed path leaves nothing behind.
    for (const char *part = path;; part++) {
        size_t length = strcspn(part, ".");
        if (length == 0)
            return nullptr;
        part += length;
        if (*part == '\0')
            break;
    }
    object_t *object = bus->root;
    for (const char *part = path;; part++) {
        size_t length = strcspn(part, ".");
        object_t *child = find_child(object, part, length);
        if (child == nullptr) {
            child = create(bus, part, length, "");
            if (child == nullptr)
                return nullptr;
            attach(object, child);
        }
        object = child;
        part += length;
        if (*part == '\0')
            break;
    }
    const char *wanted_class = class_name != nullptr ? class_name : "";
    if (object->declared)
        return object->kind == kind && strcmp(object->class_name, wanted_class) == 0 ? object : nullptr;
    if (object->kind != ObjectKind::plain)
        return nullptr;
    char *copy = strdup(wanted_class);
    if (copy == nullptr)
        return nullptr;
    free(object->class_name);
    object->class_name = copy;
    object->kind = kind;
    object->declared = true;
    return object;
}

bool is_on_its_way_out(const object_t *object) {
    return object->state == ObjectState::to_be_deleted || object->state == ObjectState::cancelled;
}

// Deletions first: what is below a deleted object goes with it.
void commit(object_t *object) {
    if (is_on_its_way_out(object)) {
        destroy(object);
        return;
    }
    object->state = ObjectState::live;
    for (object_t *child = object->children.first; child != nullptr;) {
        object_t *following = List<object_t>::after(child);
        commit(child);
        child = following;
    }
}

} // namespace

namespace bus {

object_t *object_find(kex_t *bus, const char *path, size_t length) {
    if (length == 0 || length > kMaxPath || memchr(path, '\0', length) != nullptr)
        return nullptr;
    object_t *object = bus->root;
    const char *end = path + length;
    while (object != nullptr) {
        const void *dot = memchr(path, '.', static_cast<size_t>(end - path));
        const char *part_end = dot != nullptr ? static_cast<const char *>(dot) : end;
        object = find_child(object, path, static_cast<size_t>(part_end - path));
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
    return !is_pattern(object);
}

void object_path(const object_t *object, char *path) {
    size_t at = path_length(object);
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
        release(object);
}

bool objects_open(kex_t *bus) {
    bus->root = create(bus, "", 0, "");
    return bus->root != nullptr;
}

void objects_free(kex_t *bus) {
    if (bus->root != nullptr)
        destroy(bus->root);
    bus->root = nullptr;
}

} // namespace bus

const char *object_name(object_t *object, uint32_t) {
    return object != nullptr ? object->name : nullptr;
}

object_t *kex_declareObject(kex_t *bus, const char *path, const char *class_name) {
    return declare(bus, path, class_name, ObjectKind::plain);
}

object_t *kex_declareTemplate(kex_t *bus, const char *path, const char *class_name) {
    return declare(bus, path, class_name, ObjectKind::template_object);
}

object_t *kex_getObject(kex_t *bus, const char *path, uint32_t) {
    return bus != nullptr && path != nullptr ? object_find(bus, path, strlen(path)) : nullptr;
}

object_t *object_getObject(object_t *parent, const char *name, uint32_t, void *) {
    return parent != nullptr && name != nullptr ? find_child(parent, name, strlen(name)) : nullptr;
}

object_t *object_createInstance(object_t *template_object, uint32_t, const char *name) {
    if (template_object == nullptr || name == nullptr || template_object->kind != ObjectKind::template_object)
        return nullptr;
    size_t length = strlen(name);
    if (!is_good_name(name, length) || find_child(template_object, name, length) != nullptr)
        return nullptr;
    if (template_object->detached || is_pattern(template_object->parent))
        return nullptr;
    if (path_length(template_object) + 1 + length > kMaxPath)
        return nullptr;
    object_t *instance = create(template_object->bus, name, length, template_object->class_name);
    if (instance == nullptr)
        return nullptr;
    instance->kind = ObjectKind::instance;
    instance->state = ObjectState::to_be_created;
    if (!clone_children(template_object, instance)) {
        destroy(instance);
        return nullptr;
    }
    attach(template_object, instance);
    return instance;
}

int object_delete(object_t *object) {
    if (object == nullptr || object->kind != ObjectKind::instance || object->detached || is_on_its_way_out(object))
        return 0;
    bool committed = object->state == ObjectState::live;
    object->state = committed ? ObjectState::to_be_deleted : ObjectState::cancelled;
    return 1;
}

int object_commit(object_t *object) {
    if (object == nullptr || object->detached)
        return 0;
    commit(object);
    return 1;
}
