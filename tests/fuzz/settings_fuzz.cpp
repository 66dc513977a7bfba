// SPDX-License-Identifier: MIT
// The voice application's file of settings: any bytes are read or rejected with a sentence that names the line, and
// what was read can be used.
#include "plan.h"

#include "input.h"
#include "libvoice_plugin.h"
#include "require.h"

#include <arpa/inet.h>
#include <sys/mman.h>
#include <unistd.h>

using fuzz::Input;
using fuzz::require;

namespace {

template <size_t size>
void text_check(const char (&text)[size]) {
    require(memchr(text, 0, size) != nullptr, "a text of the plan is terminated");
}

void plan_check(const plan &read) {
    text_check(read.country);
    require(strlen(read.country) == 2, "a country has two letters");
    text_check(read.exchange_prefix);
    text_check(read.exchange_endpoint);
    text_check(read.incoming_number);
    text_check(read.address);
    in_addr address;
    require(inet_pton(AF_INET, read.address, &address) == 1, "the address is one");
    require(read.first_port >= 1024 && read.first_port < read.last_port, "there are ports for media");
    require(read.number_count <= kPlanNumbers, "the table of numbers has an end");
    require(read.codec_count <= std::size(read.codecs), "the list of codecs has an end");
    for (uint32_t i = 0; i < read.number_count; ++i) {
        const plan_number &row = read.numbers[i];
        text_check(row.number);
        text_check(row.endpoint);
        text_check(row.name);
        require(row.number[0] != '\0' && row.endpoint[0] != '\0', "a number and its endpoint are not empty");
        require(plan_find(&read, "nobody", row.endpoint) != nullptr, "a row is found by its endpoint");
    }
}

void defaults_check(Input &in) {
    const std::string plugin = in.text(), endpoint = in.text();
    char number[kNumberBytes + 1] = {};
    number[kNumberBytes] = 'x';
    const bool has = plan_default_number(in.below(4), plugin.c_str(), endpoint.c_str(), number);
    require(number[kNumberBytes] == 'x', "a default number stays in its room");
    require(!has || (strlen(number) == 3 && strspn(number, "0123456789") == 3), "a default number has three digits");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    static const int file = memfd_create("settings", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    require(ftruncate(file, 0) == 0 && pwrite(file, bytes, size, 0) == static_cast<ssize_t>(size),
            "the file is written");

    plan read;
    const char *wrong = plan_load(&read, path.c_str());
    if (wrong)
        require(strncmp(wrong, (path + ":").c_str(), path.size() + 1) == 0, "what is wrong names file and line");
    else
        plan_check(read);
    Input in(bytes, size);
    defaults_check(in);
    return 0;
}
