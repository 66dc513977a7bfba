// SPDX-License-Identifier: MIT
// The built-in call KEX_BUILTIN_PATH / KEX_BUILTIN_LIST. Each object is one text:
//
//     path " " kind " " class-or-"-" { " " function "(" [ argument { "," argument } ] ")" }
//
// kind is "object", "template" or "instance"; an argument stands as it was declared, second names included: "a|b".
#include "calls/listing.h"
#include "calls/object.h"
#include "value/variant.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

using namespace bus;

namespace {

constexpr size_t kMaxLine = 8192;

struct Line {
    char text[kMaxLine];
    size_t length;
    bool full;
};

void append(Line &line, const char *format, ...) __attribute__((format(printf, 2, 3)));

void append(Line &line, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(line.text + line.length, kMaxLine - line.length, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= kMaxLine - line.length)
        line.full = true;
    else
        line.length += static_cast<size_t>(length);
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

void append_functions(Line &line, const object_t *object) {
    const List<Function> &functions = object->bus->functions;
    for (Function *function = functions.first; function != nullptr; function = List<Function>::after(function)) {
        if (strcmp(function->class_name, object->class_name) != 0)
            continue;
        append(line, " %s(", function->name);
        for (uint32_t i = 0; i < function->argument_count; i++)
            append(line, "%s%s", i > 0 ? "," : "", function->arguments[i]);
        append(line, ")");
    }
}

bool list_object(const object_t *object, variant_list_t *list) {
    Line line;
    line.length = 0;
    line.full = false;
    char path[kMaxPath + 1];
    object_path(object, path);
    append(line, "%s %s %s", path, kind_name(object->kind), *object->class_name != '\0' ? object->class_name : "-");
    append_functions(line, object);
    variant_t *item = line.full ? nullptr : list_append(list);
    return item != nullptr && variant_setChar(item, line.text) != 0;
}

bool list_children(const object_t *object, variant_list_t *list) {
    for (object_t *child = object->children.first; child != nullptr; child = List<object_t>::after(child)) {
        if (child->state == ObjectState::to_be_created || child->state == ObjectState::cancelled)
            continue;
        if (!list_object(child, list) || !list_children(child, list))
            return false;
    }
    return true;
}

} // namespace

namespace bus {

bool listing_fill(kex_t *bus, variant_t *value) {
    variant_initialize(value, VARIANT_LIST);
    variant_list_t *list = variant_da_list(value);
    if (list != nullptr && list_children(bus->root, list))
        return true;
    variant_cleanup(value);
    return false;
}

} // namespace bus
