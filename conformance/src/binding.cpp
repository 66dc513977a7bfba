// SPDX-License-Identifier: MIT
// Implements binding.h.
#include "binding.h"
#include "check.h"

#include <dlfcn.h>
#include <link.h>
#include <stdio.h>
#include <string.h>

namespace conformance {

Binding lib;

namespace {

constexpr char kVersion[] = "KEX_1"; // what programs ask for that were linked with the bundled bus

enum class Of { library, hosts };

struct Name {
    const char *text;
    Of of;
};

constexpr Name kNames[] = {
#define PLATFORM(function) {#function, Of::library},
#define TRACE(function) PLATFORM(function)
#define HOST(function) {#function, Of::hosts},
#include "functions.inc"
#undef PLATFORM
#undef TRACE
#undef HOST
};

void *handle;

template <class Shape>
void function_find(Function<Shape> &function, const char *name) {
    function.name = name;
    function.address = reinterpret_cast<decltype(function.address)>(dlsym(handle, name));
}

void name_append(char *text, unsigned size, const char *name) {
    const size_t length = strlen(text);
    snprintf(text + length, size - length, " %s", name);
}

#ifdef __GLIBC__
// Whether the object that defines the address gives its symbols versions. One that does not serves any version.
bool object_has_versions(void *address) {
    Dl_info info;
    void *found = nullptr;
    if (dladdr1(address, &info, &found, RTLD_DL_LINKMAP) == 0)
        return false;
    for (const ElfW(Dyn) *entry = static_cast<link_map *>(found)->l_ld; entry->d_tag != DT_NULL; entry++) {
        if (entry->d_tag == DT_VERDEF)
            return true;
    }
    return false;
}

bool has_other_version(const char *name) {
    void *address = dlsym(handle, name);
    return address != nullptr && dlvsym(handle, name, kVersion) == nullptr && object_has_versions(address);
}
#else
bool has_other_version(const char *) {
    return false; // this C library knows no versions
}
#endif

} // namespace

void binding_load(const char *path) {
    step("loading the library");
    // Bound at once: one that needs what nobody has is told here, not in the middle of a check.
    handle = dlopen(path, RTLD_NOW | RTLD_GLOBAL);
    if (handle == nullptr)
        fail("%s", dlerror());
#define PLATFORM(function) function_find(lib.function, #function);
#define TRACE(function) PLATFORM(function)
#define HOST(function) PLATFORM(function)
#include "functions.inc"
#undef PLATFORM
#undef TRACE
#undef HOST
    step("after loading");
}

bool binding_lacks(bool of_hosts, char *text, unsigned size) {
    text[0] = '\0';
    for (const Name &name : kNames) {
        if ((name.of == Of::hosts) == of_hosts && dlsym(handle, name.text) == nullptr)
            name_append(text, size, name.text);
    }
    return text[0] != '\0';
}

bool binding_misversions(char *text, unsigned size) {
    text[0] = '\0';
    for (const Name &name : kNames) {
        if (has_other_version(name.text))
            name_append(text, size, name.text);
    }
    return text[0] != '\0';
}

} // namespace conformance
