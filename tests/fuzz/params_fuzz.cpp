// SPDX-License-Identifier: MIT
// The parameter buffer: both readers and the dump on any bytes, and what the writer wrote read back.
#include "input.h"
#include "libvoice_plugin.h"
#include "require.h"

#include <algorithm>
#include <memory>
#include <vector>

using fuzz::Input;
using fuzz::require;

namespace {

struct Item {
    uint32_t id;
    std::string value;
};

// A block of exactly so many bytes, so that the sanitizer sees each one beside it. It begins on a word boundary.
struct Block {
    explicit Block(const std::string &from)
        : bytes(new uint8_t[from.size()]), size(static_cast<uint32_t>(from.size())) {
        std::copy(from.begin(), from.end(), bytes.get());
    }
    bool holds(const uint8_t *start, uint32_t length) const {
        return start >= bytes.get() && start <= bytes.get() + size && length <= size - (start - bytes.get());
    }
    std::unique_ptr<uint8_t[]> bytes;
    uint32_t size;
};

// Every value inside the buffer is read once, so that the sanitizer sees one that is not.
unsigned sum_of(const uint8_t *value, uint32_t length) {
    unsigned sum = 0;
    for (uint32_t i = 0; i < length; ++i)
        sum += value[i];
    return sum;
}

// Walks the whole buffer and gives its whole items.
std::vector<Item> walk(const Block &block) {
    std::vector<Item> items;
    uint8_t *cursor = block.bytes.get();
    uint32_t remaining = block.size;
    while (remaining != 0) {
        const uint32_t before = remaining;
        uint32_t id = 0, length = 0;
        uint8_t *value = nullptr;
        const uint32_t code = libvoice_get_current_param(&id, &length, &value, &cursor, &remaining);
        require(code == LIBVOICE_OK || code == LIBVOICE_ERR_PARAM_FORMAT, "the reader answers 0 or 8");
        require(remaining < before || code != LIBVOICE_OK, "an item that was read has been consumed");
        require(cursor + remaining == block.bytes.get() + block.size, "cursor and remaining move together");
        if (code != LIBVOICE_OK)
            break;
        if (!value) {
            require(before >= 8 && remaining == before - 8, "an item cut off consumes its head only");
            break;
        }
        require(block.holds(value, length), "the value lies in the buffer");
        require((value - block.bytes.get()) % 4 == 0, "a value begins on a word boundary");
        sum_of(value, length);
        items.push_back({id, std::string(reinterpret_cast<char *>(value), length)});
    }
    return items;
}

// Looks an identifier up to the end and compares with what the walk found of it.
void search(const Block &block, uint32_t id, const std::vector<Item> &items) {
    uint8_t *cursor = block.bytes.get();
    uint32_t remaining = block.size;
    size_t at = 0;
    for (;;) {
        uint32_t length = 0;
        uint8_t *value = nullptr;
        const uint32_t code = libvoice_get_param(id, &length, &value, &cursor, &remaining);
        require(cursor + remaining == block.bytes.get() + block.size, "cursor and remaining move together");
        if (code != LIBVOICE_OK || !value) {
            require(code == LIBVOICE_OK || code == LIBVOICE_ERR_PARAM_NOT_FOUND || code == LIBVOICE_ERR_PARAM_FORMAT,
                    "the search answers 0, 7 or 8");
            break;
        }
        while (at < items.size() && items[at].id != id)
            ++at;
        require(at < items.size(), "a search finds only what a walk finds");
        require(block.holds(value, length), "the found value lies in the buffer");
        require(std::string(reinterpret_cast<char *>(value), length) == items[at].value,
                "a search and a walk find the same value");
        ++at;
    }
    require(std::none_of(items.begin() + static_cast<ptrdiff_t>(at), items.end(),
                         [id](const Item &item) { return item.id == id; }),
            "a search finds all that a walk finds");
}

// The dump in a room of any size: the same text, cut, and nothing is written outside.
void dump(const Block &block, uint32_t room) {
    const size_t whole_size = 800 * (size_t{block.size} / 64 + 1);
    std::string whole(whole_size, '\xA5');
    whole[0] = '\0';
    dump_msg(whole.data(), 0, static_cast<int32_t>(whole_size), block.bytes.get(), block.size);
    require(memchr(whole.data(), 0, whole_size) != nullptr, "the text is terminated");
    const std::string text = whole.c_str();

    std::unique_ptr<char[]> cut(new char[room]);
    std::fill_n(cut.get(), room, '\0');
    dump_msg(cut.get(), 0, static_cast<int32_t>(room), block.bytes.get(), block.size);
    if (room == 0)
        return;
    require(memchr(cut.get(), 0, room) != nullptr, "a cut text is terminated");
    require(text.compare(0, room - 1, cut.get()) == 0, "a cut text is the beginning of the whole one");
}

// What is written is what is read: in the same order, padded with zeros, and nothing beyond the capacity.
void write_and_read(Input &in) {
    const uint32_t capacity = in.half() % 600;
    const std::string canary(capacity, '\xA5');
    Block block(canary);
    uint8_t *cursor = block.bytes.get();
    uint32_t remaining = capacity;
    std::vector<Item> written;
    while (!in.is_empty()) {
        const Item item{in.word(), in.text()};
        const uint64_t needed = 8 + (uint64_t{item.value.size()} + 3) / 4 * 4;
        const uint32_t before = remaining;
        const uint32_t code = libvoice_add_param(item.id, static_cast<uint32_t>(item.value.size()), item.value.data(),
                                                 &cursor, &remaining);
        require(code == (needed <= before ? LIBVOICE_OK : LIBVOICE_ERR_PARAM_NO_SPACE),
                "an item is taken when it fits");
        require(before - remaining == (code == LIBVOICE_OK ? needed : 0),
                "an item takes whole words, a refused one none");
        if (code == LIBVOICE_OK)
            written.push_back(item);
    }
    const uint32_t used = capacity - remaining;
    require(std::all_of(block.bytes.get() + used, block.bytes.get() + capacity, [](uint8_t b) { return b == 0xA5; }),
            "nothing is written behind the last item");
    const Block exact(std::string(reinterpret_cast<char *>(block.bytes.get()), used));
    const std::vector<Item> read = walk(exact);
    require(read.size() == written.size(), "as many items are read as were written");
    for (size_t i = 0; i < read.size(); ++i)
        require(read[i].id == written[i].id && read[i].value == written[i].value, "an item is read as it was written");
    size_t at = 0;
    for (const Item &item : written) {
        at += 8 + item.value.size();
        for (; at % 4 != 0; ++at)
            require(exact.bytes[at] == 0, "padding is zero");
    }
    dump(exact, capacity);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    if (in.flag()) {
        write_and_read(in);
        return 0;
    }
    const uint32_t room = in.half() % 2000, wanted = in.word();
    const Block block(in.rest());
    const std::vector<Item> items = walk(block);
    search(block, wanted, items);
    if (!items.empty())
        search(block, items.back().id, items);
    dump(block, room);
    return 0;
}
