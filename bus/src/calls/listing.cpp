// SPDX-License-Identifier: MIT
// The built-in call KEX_BUILTIN_PATH / KEX_BUILTIN_LIST. Each object is one text:
//
//     path " " kind " " class-or-"-" { " " function "(" [ argument { "," argument } ] ")" }
//
// kind is "object", "template" or "instance"; an argument stands as it was declared, second names included: "a|b".
#include "calls/listing.h"
#include "calls/function.h"
#include "calls/object.h"
#include "value/variant.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

using namespace bus;

namespace {

constexpr size_t kMaxEntry = 8192;

// The text of one object.
struct Entry {
    char text[kMaxEntry];
    size_t length;
    bool full;
};

void entry_append(Entry &entry, const char *format, ...) __attribute__((format(printf, 2, 3)));

void entry_append(Entry &entry, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(entry.text + entry.length, kMaxEntry - entry.length, format, arguments);
    va_end(arguments);
    if (static_cast<size_t>(length) >= kMaxEntry - entry.length)
        entry.full = true;
    else
        entry.length += static_cast<size_t>(length);
}

const char *kind_name(ObjectKind kind) {
    switch (kind) {
    case ObjectKind::template_object:
        return "template";
    case ObjectKind::instance:
        return "instance";
    default:
        return "object";
    }
}

void entry_append_functions(Entry &entry, const Calls *calls, const object_t *object) {
    for (Function *function : calls->functions) {
        if (strcmp(function->class_name, object->class_name) != 0)
            continue;
        entry_append(entry, " %s(", function->name.bytes);
        for (uint32_t i = 0; i < function->argument_count; i++)
            entry_append(entry, "%s%s", i > 0 ? "," : "", function->arguments[i]);
        entry_append(entry, ")");
    }
}

bool object_list(const Calls *calls, const object_t *object, variant_list_t *list) {
    Entry entry;
    entry.length = 0;
    entry.full = false;
    char path[kMaxPath + 1];
    object_path(object, path);
    entry_append(entry, "%s %s %s", path, kind_name(object->kind),
                 *object->class_name != '\0' ? object->class_name : "-");
    entry_append_functions(entry, calls, object);
    variant_t *item = entry.full ? nullptr : list_append(list);
    return item != nullptr && variant_setChar(item, entry.text) != 0;
}

bool object_list_children(const Calls *calls, const object_t *object, variant_list_t *list) {
    for (object_t *child : object->children) {
        if (child->state == ObjectState::to_be_created || child->state == ObjectState::cancelled)
            continue;
        if (!object_list(calls, child, list) || !object_list_children(calls, child, list))
            return false;
    }
    return true;
}

} // namespace

namespace bus {

bool listing_fill(const Calls *calls, variant_t *value) {
    variant_initialize(value, VARIANT_LIST);
    variant_list_t *list = variant_da_list(value);
    if (list != nullptr && object_list_children(calls, calls->root, list))
        return true;
    variant_cleanup(value);
    return false;
}

} // namespace bus
