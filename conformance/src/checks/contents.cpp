// SPDX-License-Identifier: MIT
// What values hold: their own copies of texts and bytes, and descriptors that they only borrow.
#include "binding.h"
#include "groups.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

long pages_resident() {
    long whole = 0;
    long resident = 0;
    FILE *file = fopen("/proc/self/statm", "re");
    if (file == nullptr || fscanf(file, "%ld %ld", &whole, &resident) != 2)
        fail("/proc cannot be read");
    fclose(file);
    return resident;
}

// 4,000 values of 64 KiB would be 256 MB.
void setters_release() {
    constexpr long kAllowed = 16L << 20;
    static char bytes[65536];
    memset(bytes, 'x', sizeof bytes - 1);
    variant_t value = {};
    const long before = pages_resident();
    for (unsigned i = 0; i < 2000; i++) {
        lib.variant_setChar(&value, bytes);
        lib.variant_setByteArray(&value, bytes, sizeof bytes);
    }
    lib.variant_cleanup(&value);
    const long grown = (pages_resident() - before) * sysconf(_SC_PAGESIZE);
    expect(grown < kAllowed, "the process has grown by %ld KiB", grown / 1024);
    saw("4,000 large values in less than 16 MiB");
}

void copied() {
    char source[] = "before";
    variant_t text = {};
    variant_t bytes = {};
    const char *seen = nullptr;
    const void *data = nullptr;
    uint32_t length = 0;
    lib.variant_setChar(&text, source);
    lib.variant_setByteArray(&bytes, source, 6);
    memset(source, 'x', 6);
    expect(lib.variant_toChar(&text, &seen) != 0, "variant_toChar answers no");
    expect_text("text", seen, "before");
    expect(lib.variant_toByteArray(&bytes, &data, &length) != 0 && length == 6, "the bytes are not there");
    expect(memcmp(data, "before", 6) == 0, "the bytes changed with their source");
    lib.variant_cleanup(&text);
    lib.variant_cleanup(&bytes);
}

void borrowed_descriptor() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    variant_t value = {};
    lib.variant_setFd(&value, fd);
    expect_number("the descriptor is the one that was set", lib.variant_fd(&value) == fd, 1);
    lib.variant_setFd(&value, -1);
    lib.variant_cleanup(&value);
    expect(fcntl(fd, F_GETFD) >= 0, "the caller's descriptor was closed");
    close(fd);
}

void negative_descriptor() {
    variant_t value = {};
    expect(lib.variant_setFd(&value, -1) != 0, "variant_setFd answers no to -1");
    expect_number("type", lib.variant_type(&value), VARIANT_FD);
    expect_number("descriptor", lib.variant_fd(&value), -1);
    lib.variant_cleanup(&value);
}

void no_descriptor() {
    variant_t value = {};
    lib.variant_setUInt32(&value, 1);
    expect_number("of a number", lib.variant_fd(&value), -1);
    lib.variant_setChar(&value, "1");
    expect_number("of a text", lib.variant_fd(&value), -1);
    lib.variant_cleanup(&value);
}

constexpr Check kChecks[] = {
    {"variants.setters_release", kMust, "Setters set type and value and release what was there.", setters_release,
     nullptr, 0, false},
    {"variants.copied", kMust, "Text and bytes are copied.", copied, nullptr, 0, false},
    {"variants.borrowed_descriptor", kMust,
     "Borrows the descriptor until the variant is copied into a request or list and sent.", borrowed_descriptor,
     nullptr, 0, false},
    {"variants.negative_descriptor", kMust, "A negative one is a value too.", negative_descriptor, nullptr, 0, false},
    {"variants.no_descriptor", kMust, "The descriptor, or -1.", no_descriptor, nullptr, 0, false},
};

} // namespace

const Group kContents = group_of(kChecks);

} // namespace conformance
