// SPDX-License-Identifier: MIT
// The data model: objects, templates, instances, and the functions of their classes.
#include "bus.h"

#include <algorithm>
#include <dlfcn.h>
#include <string.h>

using namespace sdbus;

namespace {

// Deleted while functions may still hold them.
std::vector<std::unique_ptr<object_t>> removed_objects;

object_t *child_find(object_t *parent, const std::string &name) {
    for (const std::unique_ptr<object_t> &child : parent->children) {
        if (child->name == name)
            return child.get();
    }
    return nullptr;
}

std::unique_ptr<object_t> object_make(const std::string &name, const std::string &class_name) {
    std::unique_ptr<object_t> object = std::make_unique<object_t>();
    object->name = name;
    object->class_name = class_name;
    return object;
}

object_t *child_add(object_t *parent, std::unique_ptr<object_t> child) {
    child->parent = parent;
    parent->children.push_back(std::move(child));
    return parent->children.back().get();
}

// Part of a template rather than of an instance.
bool object_is_pattern(const object_t *object) {
    while (object != nullptr && object->kind == object::plain)
        object = object->parent;
    return object != nullptr && object->kind == object::pattern;
}

void children_clone(const object_t *from, object_t *to) {
    for (const std::unique_ptr<object_t> &child : from->children) {
        if (child->kind == object::instance)
            continue;
        object_t *copy = child_add(to, object_make(child->name, child->class_name));
        copy->kind = child->kind;
        children_clone(child.get(), copy);
    }
}

void object_mark_removed(object_t *object) {
    object->state = object::removed;
    for (const std::unique_ptr<object_t> &child : object->children)
        object_mark_removed(child.get());
}

bool is_deleted(const object_t *object) {
    return object->state == object::to_be_deleted || object->state == object::cancelled;
}

// Takes the child out of the tree; functions that run may still hold it.
void object_remove(object_t *object) {
    std::vector<std::unique_ptr<object_t>> &siblings = object->parent->children;
    const auto place =
        std::find_if(siblings.begin(), siblings.end(), [=](const auto &one) { return one.get() == object; });
    object_mark_removed(object);
    removed_objects.push_back(std::move(*place));
    siblings.erase(place);
}

void object_apply(object_t *object) {
    if (is_deleted(object))
        return object_remove(object);
    object->state = object::live;
    for (size_t i = object->children.size(); i > 0; i--) // from the end: a child may go
        object_apply(object->children[i - 1].get());
}

// The parts of a dotted path; none when it is malformed.
std::vector<std::string> path_split(const std::string &path) {
    std::vector<std::string> parts;
    for (size_t begin = 0;;) {
        const size_t end = path.find('.', begin);
        parts.push_back(path.substr(begin, end - begin));
        if (parts.back().empty() || path.size() > kMaxPath)
            return {};
        if (end == std::string::npos)
            return parts;
        begin = end + 1;
    }
}

object_t *object_declare(kex_t *bus, const char *path, const char *class_name, decltype(object::kind) kind) {
    const std::vector<std::string> parts = bus != nullptr && path != nullptr ? path_split(path) : path_split("");
    if (parts.empty() || strcmp(path, KEX_BUILTIN_PATH) == 0)
        return nullptr;
    object_t *object = &bus->root;
    for (const std::string &part : parts) {
        object_t *child = child_find(object, part);
        object = child != nullptr ? child : child_add(object, object_make(part, ""));
    }
    const std::string wanted = class_name != nullptr ? class_name : "";
    if (object->declared)
        return object->class_name == wanted && object->kind == kind ? object : nullptr;
    object->class_name = wanted;
    object->kind = kind;
    object->declared = true;
    return object;
}

// Once, here: what comes from a peer is only ever compared with declared names.
bool function_declare(kex_t *bus, const char *const *row, uint32_t columns) {
    if (row[0] == nullptr || row[1] == nullptr || *row[1] == '\0')
        return false;
    const std::string symbol = std::string("__") + row[0] + (*row[0] != '\0' ? "_" : "") + row[1];
    void *entry = dlsym(RTLD_DEFAULT, symbol.c_str());
    if (entry == nullptr) {
        note(ZIL_TRACE_ERROR, "function '%s' is declared but this process exports no '%s' (linked with -rdynamic?)",
             row[1], symbol.c_str());
        return false;
    }
    Function &function = bus->functions[{row[0], row[1]}];
    function = {reinterpret_cast<kex_function_t *>(entry), {}};
    for (uint32_t i = 2; i < columns && row[i] != nullptr; i++)
        function.arguments.emplace_back(row[i]);
    return true;
}

// path kind class function(argument,argument) ...
void children_list(const kex_t *bus, const object_t *parent, const std::string &prefix, variant_list_t *list) {
    static const char *const kKinds[] = {"object", "template", "instance"};
    for (const std::unique_ptr<object_t> &child : parent->children) {
        if (child->state == object::to_be_created || child->state == object::cancelled)
            continue;
        std::string text = prefix + child->name + " " + kKinds[child->kind] + " " +
                           (child->class_name.empty() ? "-" : child->class_name);
        for (const auto &[name, function] : bus->functions) {
            if (name.first != child->class_name)
                continue;
            text += " " + name.second + "(";
            for (const std::string &argument : function.arguments)
                text += (&argument != &function.arguments.front() ? "," : "") + argument;
            text += ")";
        }
        Value item;
        value_set_text(&item, VARIANT_TEXT, text.data(), text.size());
        variant_list_add(list, &item);
        children_list(bus, child.get(), prefix + child->name + ".", list);
    }
}

} // namespace

namespace sdbus {

object_t *object_find(kex_t *bus, const std::string &path) {
    const std::vector<std::string> parts = path_split(path);
    object_t *object = parts.empty() ? nullptr : &bus->root;
    for (const std::string &part : parts)
        object = object != nullptr ? child_find(object, part) : nullptr;
    return object;
}

bool object_is_callable(const object_t *object) {
    for (const object_t *above = object; above != nullptr; above = above->parent) {
        if (above->state == object::to_be_created || above->state == object::cancelled)
            return false;
    }
    return !object_is_pattern(object);
}

const Function *function_find(const kex_t *bus, const std::string &class_name, const std::string &name) {
    const auto found = bus->functions.find({class_name, name});
    return found != bus->functions.end() ? &found->second : nullptr;
}

void listing_fill(const kex_t *bus, variant_t *value) {
    variant_initialize(value, VARIANT_LIST);
    children_list(bus, &bus->root, "", variant_da_list(value));
}

void objects_bury() {
    removed_objects.clear();
}

} // namespace sdbus

int kex_declareFunctions(kex_t *bus, const char *const *rows, uint32_t row_count, uint32_t columns) {
    if (bus == nullptr || rows == nullptr || columns < 2)
        return 0;
    bool all = true;
    for (uint32_t i = 0; i < row_count; i++)
        all &= function_declare(bus, rows + size_t{i} * columns, columns);
    return all;
}

object_t *kex_declareObject(kex_t *bus, const char *path, const char *class_name) {
    return object_declare(bus, path, class_name, object::plain);
}
object_t *kex_declareTemplate(kex_t *bus, const char *path, const char *class_name) {
    return object_declare(bus, path, class_name, object::pattern);
}

object_t *kex_getObject(kex_t *bus, const char *path, uint32_t) {
    return bus != nullptr && path != nullptr ? object_find(bus, path) : nullptr;
}
object_t *object_getObject(object_t *parent, const char *name, uint32_t, void *) {
    return parent != nullptr && name != nullptr ? child_find(parent, name) : nullptr;
}
const char *object_name(object_t *object, uint32_t) {
    return object != nullptr ? object->name.c_str() : nullptr;
}

object_t *object_createInstance(object_t *template_object, uint32_t, const char *name) {
    const bool can = template_object != nullptr && template_object->kind == object::pattern && name != nullptr &&
                     path_split(name).size() == 1 && !object_is_pattern(template_object->parent) &&
                     template_object->state != object::removed && child_find(template_object, name) == nullptr;
    if (!can)
        return nullptr;
    object_t *instance = child_add(template_object, object_make(name, template_object->class_name));
    instance->kind = object::instance;
    instance->state = object::to_be_created;
    children_clone(template_object, instance);
    return instance;
}

int object_delete(object_t *object) {
    if (object == nullptr || object->kind != object::instance || is_deleted(object) || object->state == object::removed)
        return 0;
    object->state = object->state == object::live ? object::to_be_deleted : object::cancelled;
    return 1;
}

int object_commit(object_t *object) {
    if (object == nullptr || object->state == object::removed)
        return 0;
    object_apply(object);
    return 1;
}
