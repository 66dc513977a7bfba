// SPDX-License-Identifier: MIT
// Encoding and decoding of a call setup block with date and time, both numbers, a name and a call type.
#include <cstring>

#include "../support/measure.h"
#include "paths.h"
#include "peers.h"

namespace {

char out[512];
char text[512];

struct Fields {
    libvoice_db_common_fields common = {};
    libvoice_db_message_fields message = {};
};
Fields given;

struct Target {
    char date_time[9];
    char calling_number[21];
    char name[51];
    char called_number[21];
    char call_type;
} target;
Fields wanted;

libvoice_db_field field_from(const char *value) {
    return {const_cast<char *>(value), static_cast<uint32_t>(strlen(value))};
}

template <size_t N>
libvoice_db_field field_to(char (&buffer)[N]) {
    return {buffer, N - 1};
}

void make_fields() {
    given.common.date_time = field_from("11301530");
    given.common.calling_number = field_from("0123456789");
    given.message.name = field_from("Marienhof Reception");
    given.message.slot2 = field_from("5551234");
    given.message.call_type = field_from("\x01");
    wanted.common.date_time = field_to(target.date_time);
    wanted.common.calling_number = field_to(target.calling_number);
    wanted.message.name = field_to(target.name);
    wanted.message.slot2 = field_to(target.called_number);
    wanted.message.call_type = {&target.call_type, 1};
}

uint64_t sum_of(const void *bytes, size_t length) {
    uint64_t sum = length;
    for (size_t i = 0; i < length; ++i)
        sum = sum * 31 + static_cast<const uint8_t *>(bytes)[i];
    return sum;
}

uint32_t library_encode(const libvoice_db_message_fields *message, const libvoice_db_common_fields *common, char *to) {
    uint32_t length = 0;
    libvoice_db_call_setup_encode(message, common, to, &length);
    return length;
}

int library_decode(const char *from, libvoice_db_message_fields *message, libvoice_db_common_fields *common) {
    return static_cast<int>(libvoice_db_call_setup_decode(from, 0, message, common));
}

template <auto encode>
uint64_t encode_one() {
    const uint32_t length = encode(&given.message, &given.common, out);
    keep(out[0]);
    return length;
}

template <auto decode>
uint64_t decode_one() {
    const int result = decode(text, &wanted.message, &wanted.common);
    keep(target.name[0]);
    return static_cast<uint64_t>(result) + static_cast<uint8_t>(target.name[4]);
}

// What is timed answers little; so that all do the same, the whole result is looked at once.
template <auto encode, auto decode>
void add(std::vector<Variant> &variants, const char *by) {
    variants.push_back({"data block encode", by, encode_one<encode>, 1});
    variants.push_back({"data block decode", by, decode_one<decode>, 1});
    variants.push_back({"data block bytes", by,
                        [] {
                            const uint32_t length = encode(&given.message, &given.common, out);
                            memset(&target, 0, sizeof target);
                            decode(text, &wanted.message, &wanted.common);
                            return sum_of(out, length) ^ sum_of(&target, sizeof target);
                        },
                        0});
}

} // namespace

void add_data_block_paths(std::vector<Variant> &variants) {
    make_fields();
    library_encode(&given.message, &given.common, text);
    add<library_encode, library_decode>(variants, kLibrary);
    add<table_encode, table_decode>(variants, "table in C");
    add<printf_encode, printf_decode>(variants, "printf and strtol");
}
