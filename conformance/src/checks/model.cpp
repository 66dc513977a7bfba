// SPDX-License-Identifier: MIT
// The data model of one process: objects, templates, instances and commits.
#include "groups.h"
#include "host.h"

#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

object_t *template_find() {
    object_t *found = lib.kex_getObject(bus, "plain.Item", 0);
    expect(found != nullptr, "kex_getObject does not find a template");
    return found;
}

object_t *instance_make(const char *name) {
    object_t *made = lib.object_createInstance(template_find(), 0, name);
    expect(made != nullptr, "object_createInstance answers null for \"%s\"", name);
    return made;
}

void commit(object_t *object) {
    expect(lib.object_commit(object) != 0, "object_commit answers no");
}

bool is_there(const char *path) {
    return lib.kex_getObject(bus, path, 0) != nullptr;
}

void paths() {
    host_begin();
    object_t *parent = lib.kex_getObject(bus, "Conformance", 0);
    object_t *child = lib.kex_getObject(bus, "Conformance.Twin", 0);
    expect(parent != nullptr && child != nullptr && parent != child, "declared objects are not found");
    expect(lib.object_getObject(parent, "Twin", 0, nullptr) == child, "object_getObject finds another one");
    expect_text("name", lib.object_name(child, 1), "Twin");
    expect_text("name of the parent", lib.object_name(parent, 1), "Conformance");
    host_end();
}

void unknown() {
    host_begin();
    for (const char *path : {"Nobody", "Conformance.Nobody", "Twin", "Conformance.Twin.Nobody", "", "."})
        expect(!is_there(path), "\"%s\" is found", path);
    object_t *parent = lib.kex_getObject(bus, "Conformance", 0);
    expect(lib.object_getObject(parent, "Nobody", 0, nullptr) == nullptr, "a child is found that is none");
    saw("null seven times");
    host_end();
}

void parents() {
    host_begin();
    expect(lib.kex_declareObject(bus, "A.B.C", "Conformance") != nullptr, "kex_declareObject answers null");
    expect(is_there("A") && is_there("A.B") && is_there("A.B.C"), "one of them is missing");
    expect(!is_there("A.C") && !is_there("B") && !is_there("C"), "one of them stands elsewhere, too");
    saw("A, A.B and A.B.C");
    host_end();
}

void found_before_commit() {
    host_begin();
    object_t *made = instance_make("one");
    expect(lib.object_getObject(template_find(), "one", 0, nullptr) == made, "object_getObject does not find it");
    expect_text("name", lib.object_name(made, 1), "one");
    saw("found");
    host_end();
}

void found_after_commit() {
    host_begin();
    object_t *made = instance_make("one");
    commit(made);
    expect(lib.object_getObject(template_find(), "one", 0, nullptr) == made, "object_getObject does not find it");
    expect(lib.kex_getObject(bus, "plain.Item.one", 0) == made, "kex_getObject does not find it");
    expect(!is_there("plain.Item.two"), "another one is found, too");
    saw("found by both");
    host_end();
}

void found_until_commit() {
    host_begin();
    object_t *made = instance_make("one");
    commit(made);
    expect(lib.object_delete(made) != 0, "object_delete answers no");
    expect(lib.object_getObject(template_find(), "one", 0, nullptr) == made, "it is gone before the commit");
    expect_text("name", lib.object_name(made, 1), "one");
    commit(made);
    expect(lib.object_getObject(template_find(), "one", 0, nullptr) == nullptr, "it is there after the commit");
    expect(!is_there("plain.Item.one"), "kex_getObject finds it after the commit");
    host_end();
}

void made_again() {
    host_begin();
    for (unsigned i = 0; i < 3; i++) {
        object_t *made = instance_make("one");
        commit(made);
        lib.object_delete(made);
        commit(made);
        expect(!is_there("plain.Item.one"), "it is still there");
    }
    commit(instance_make("one"));
    expect(is_there("plain.Item.one"), "the last one is not found");
    saw("four instances of one name, one after the other");
    host_end();
}

void taken_name() {
    host_begin();
    object_t *made = instance_make("one");
    expect(lib.object_createInstance(template_find(), 0, "one") == nullptr, "a second one of that name is made");
    commit(made);
    expect(lib.object_createInstance(template_find(), 0, "one") == nullptr, "a second one is made after the commit");
    lib.object_delete(made);
    expect(lib.object_createInstance(template_find(), 0, "one") == nullptr, "one is made beside one to be deleted");
    saw("null three times");
    host_end();
}

void parent_commits() {
    host_begin();
    object_t *one = instance_make("one");
    object_t *two = instance_make("two");
    commit(template_find());
    expect(lib.object_delete(one) != 0 && lib.object_delete(two) != 0, "object_delete answers no");
    commit(template_find());
    expect(!is_there("plain.Item.one") && !is_there("plain.Item.two"), "the template's commit deleted not both");
    instance_make("three");
    commit(lib.kex_getObject(bus, "plain", 0));
    lib.object_delete(lib.kex_getObject(bus, "plain.Item.three", 0));
    commit(lib.kex_getObject(bus, "plain", 0));
    expect(!is_there("plain.Item.three"), "the commit of the template's parent deleted nothing");
    saw("template and its parent commit what is below");
    host_end();
}

void not_beside() {
    host_begin();
    object_t *one = instance_make("one");
    object_t *two = instance_make("two");
    commit(template_find());
    lib.object_delete(one);
    commit(two);
    expect(is_there("plain.Item.one"), "the commit of another instance deleted it");
    commit(one);
    expect(!is_there("plain.Item.one"), "its own commit did not");
    saw("there until its own commit");
    host_end();
}

void no_template() {
    host_begin();
    object_t *plain = lib.kex_getObject(bus, "Conformance", 0);
    expect(lib.object_createInstance(plain, 0, "one") == nullptr, "an instance of an object that is no template");
    expect(lib.object_createInstance(template_find(), 0, "") == nullptr, "an instance without a name");
    saw("null twice");
    host_end();
}

void inner_templates() {
    host_begin();
    commit(instance_make("one"));
    object_t *part = lib.kex_getObject(bus, "plain.Item.one.Part", 0);
    expect(part != nullptr, "the instance has no copy of the inner template");
    object_t *inner = lib.object_createInstance(part, 0, "a");
    expect(inner != nullptr, "no instance of the inner template can be made");
    commit(inner);
    expect(is_there("plain.Item.one.Part.a"), "it is not found");
    instance_make("two");
    expect(!is_there("plain.Item.two.Part.a"), "another instance has it too");
    saw("an instance of its own in an instance");
    host_end();
}

void with_what_is_below() {
    host_begin();
    object_t *one = instance_make("one");
    commit(one);
    commit(lib.object_createInstance(lib.kex_getObject(bus, "plain.Item.one.Part", 0), 0, "a"));
    lib.object_delete(one);
    commit(template_find());
    expect(!is_there("plain.Item.one.Part.a") && !is_there("plain.Item.one.Part"), "what was below it is still there");
    saw("gone with all below");
    host_end();
}

void any_index() {
    host_begin();
    object_t *one = lib.object_createInstance(template_find(), 1, "a");
    object_t *seven = lib.object_createInstance(template_find(), 7, "b");
    object_t *last = lib.object_createInstance(template_find(), UINT32_MAX, "c");
    expect(one != nullptr && seven != nullptr && last != nullptr, "null for one of the indices 1, 7 and 4294967295");
    expect(one != seven && seven != last && one != last, "two of them are one instance");
    saw("three instances");
    host_end();
}

void many() {
    char name[2][16] = {"i0", "i0"};
    host_begin();
    for (unsigned i = 0; i < 60; i++) {
        name[0][1] = static_cast<char>('0' + i);
        commit(instance_make(name[0]));
    }
    expect(!is_there("plain.Item.i"), "one is found that is none");
    for (unsigned i = 0; i < 60; i++) {
        char path[32] = "plain.Item.";
        name[1][1] = static_cast<char>('0' + i);
        strcat(path, name[1]);
        expect(is_there(path), "\"%s\" is not found", path);
    }
    saw("60 instances");
    host_end();
}

constexpr char kFound[] = "It is found from now on, and can be called after its commit.";
constexpr char kDeletes[] =
    "Marks an instance for deletion; object_commit() carries it out: until then it is found and "
    "can be called, and its name is taken.";
constexpr char kCommits[] = "Applies what is pending at and below the object.";
constexpr char kClones[] = "A template may hold templates; they are cloned with each instance.";

constexpr Check kChecks[] = {
    {"model.paths", kMust, "The object of a dotted path in the local tree, or NULL.", paths, nullptr, 0, false},
    {"model.unknown", kMust, "The object of a dotted path in the local tree, or NULL.", unknown, nullptr, 0, false},
    {"model.parents", kMust, "\"A.B\" makes A (no class) and B.", parents, nullptr, 0, false},
    {"model.found_before_commit", kMust, kFound, found_before_commit, nullptr, 0, false},
    {"model.found_after_commit", kMust, kFound, found_after_commit, nullptr, 0, false},
    {"model.found_until_commit", kMust, kDeletes, found_until_commit, nullptr, 0, false},
    {"model.made_again", kMust, "After that commit the name is free.", made_again, nullptr, 0, false},
    {"model.taken_name", kMust, kDeletes, taken_name, nullptr, 0, false},
    {"model.parent_commits", kMust, kCommits, parent_commits, nullptr, 0, false},
    {"model.not_beside", kMust, kCommits, not_beside, nullptr, 0, false},
    {"model.no_template", kMust, "A new instance of a template, or NULL", no_template, nullptr, 0, false},
    {"model.inner_templates", Level::should, kClones, inner_templates, nullptr, 0, false},
    {"model.with_what_is_below", Level::should, kClones, with_what_is_below, nullptr, 0, false},
    {"model.any_index", Level::should, "the library gives 0, and a bus may ignore it", any_index, nullptr, 0, false},
    {"model.many", kMust, kFound, many, nullptr, 0, false},
};

} // namespace

const Group kModel = group_of(kChecks);

} // namespace conformance
