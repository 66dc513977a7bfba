// SPDX-License-Identifier: MIT
// Implements bus_test.h.
#include "bus_test.h"
#include "base/trace_limit.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace support {

namespace {

constexpr auto kLimit = std::chrono::seconds(20);
constexpr int kPollMilliseconds = 20; // also looks at conditions that no descriptor of the buses announces

// Tests have the same table of descriptors, whoever runs them. A login gives 1,024, of which the bus leaves many to its
// host; and but for root, descriptors in flight count against the same limit. Standard input, which many of them hand over,
// is of a kind that closes at once.
class OwnTable : public testing::Environment {
public:
    void SetUp() override {
        constexpr rlim_t kSize = 4096;
        rlimit table;
        getrlimit(RLIMIT_NOFILE, &table);
        table.rlim_cur = std::min(table.rlim_max, kSize);
        setrlimit(RLIMIT_NOFILE, &table);
        const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup2(nothing, STDIN_FILENO);
        close(nothing);
    }
};

[[maybe_unused]] const testing::Environment *const own_table = testing::AddGlobalTestEnvironment(new OwnTable);

bool is_quiet(const std::vector<kex_t *> &buses, int milliseconds) {
    std::vector<pollfd> descriptors;
    for (kex_t *bus : buses)
        descriptors.push_back({kex_pollDescriptor(bus), POLLIN, 0});
    return poll(descriptors.data(), descriptors.size(), milliseconds) <= 0;
}

} // namespace

bool turn_until(const std::vector<kex_t *> &buses, const std::function<bool()> &done) {
    auto end = std::chrono::steady_clock::now() + kLimit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        is_quiet(buses, kPollMilliseconds);
        for (kex_t *bus : buses)
            kex_dispatch(bus);
    }
    return true;
}

void turn_until_idle(const std::vector<kex_t *> &buses) {
    do {
        for (kex_t *bus : buses)
            kex_dispatch(bus);
    } while (!is_quiet(buses, 0));
}

TableSize::TableSize(rlim_t size) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit wanted = {size, before_.rlim_max};
    made_ = setrlimit(RLIMIT_NOFILE, &wanted) == 0;
}

TableSize::~TableSize() {
    setrlimit(RLIMIT_NOFILE, &before_);
}

FullTable::FullTable(rlim_t size, size_t left) : size_(size) {
    for (int fd = dup(STDIN_FILENO); fd >= 0; fd = dup(STDIN_FILENO))
        fillers_.push_back(fd);
    for (; left > 0 && !fillers_.empty(); left--) {
        close(fillers_.back());
        fillers_.pop_back();
    }
}

FullTable::~FullTable() {
    for (int fd : fillers_)
        close(fd);
}

CapturedTrace::CapturedTrace() : saved_(dup(STDERR_FILENO)), file_(memfd_create("trace", MFD_CLOEXEC)) {
    dup2(file_, STDERR_FILENO);
    bus::trace_limit_begin(); // what earlier tests have caused is not this one's
}

CapturedTrace::~CapturedTrace() {
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    close(file_);
}

std::string CapturedTrace::text() const {
    std::string all(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
    ssize_t length = pread(file_, all.data(), all.size(), 0);
    all.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return all;
}

TwoBuses::TwoBuses() {
    server = kex_create("server");
    client = kex_create("client");
    EXPECT_NE(connection_listenOnIPC(kex_connection(server), socket.c_str()), nullptr);
    to_server = connect(client);
    EXPECT_NE(to_server, nullptr);
    EXPECT_TRUE(turn_until([&] { return std::string(peer_processName(to_server)) == "server"; }));
}

TwoBuses::~TwoBuses() {
    kex_destroy(client);
    kex_destroy(server);
}

request_t *TwoBuses::call(const char *path, const char *function,
                          const std::vector<std::pair<std::string, variant_t>> &args, uint32_t flags) {
    request_t *r = request_create_executeFunction(path, function, flags);
    for (auto [name, value] : args) {
        EXPECT_TRUE(request_addParameter(r, name.c_str(), &value));
        variant_cleanup(&value);
    }
    EXPECT_TRUE(kex_sendRequest(client, to_server, r));
    EXPECT_TRUE(turn_until([&] { return request_reply(r) != nullptr; }));
    return r;
}

namespace {

template <class Set, class... Arguments>
variant_t made_by(Set set, Arguments... arguments) {
    variant_t v = {};
    EXPECT_TRUE(set(&v, arguments...));
    return v;
}

} // namespace

variant_t text(const char *value) {
    return made_by(variant_setChar, value);
}
variant_t u32(uint32_t value) {
    return made_by(variant_setUInt32, value);
}
variant_t i32(int32_t value) {
    return made_by(variant_setInt32, value);
}
variant_t u16(uint16_t value) {
    return made_by(variant_setUInt16, value);
}
variant_t i16(int16_t value) {
    return made_by(variant_setInt16, value);
}
variant_t boolean(bool value) {
    return made_by(variant_setBool, value);
}
variant_t none() {
    return made_by(variant_initialize, uint32_t{VARIANT_NONE});
}
variant_t descriptor(int fd) {
    return made_by(variant_setFd, fd);
}

variant_t bytes(const std::string &value) {
    return made_by(variant_setByteArray, value.data(), static_cast<uint32_t>(value.size()));
}

variant_t list(const std::vector<variant_t> &items) {
    variant_t v = made_by(variant_initialize, uint32_t{VARIANT_LIST});
    for (variant_t item : items) {
        EXPECT_TRUE(variant_list_add(variant_da_list(&v), &item));
        variant_cleanup(&item);
    }
    return v;
}

std::string show(const variant_t *value) {
    int32_t i32_value;
    uint32_t u32_value;
    int bool_value;
    const char *chars;
    const void *data;
    switch (variant_type(value)) {
    case VARIANT_TEXT:
        variant_toChar(value, &chars);
        return std::string("text \"") + chars + "\"";
    case VARIANT_INT16:
        variant_toInt32(value, &i32_value);
        return "i16 " + std::to_string(i32_value);
    case VARIANT_INT32:
        variant_toInt32(value, &i32_value);
        return "i32 " + std::to_string(i32_value);
    case VARIANT_UINT16:
        variant_toUInt32(value, &u32_value);
        return "u16 " + std::to_string(u32_value);
    case VARIANT_UINT32:
        variant_toUInt32(value, &u32_value);
        return "u32 " + std::to_string(u32_value);
    case VARIANT_BOOL:
        variant_toBool(value, &bool_value);
        return bool_value ? "true" : "false";
    case VARIANT_BYTES:
        variant_toByteArray(value, &data, &u32_value);
        return "bytes " + testing::PrintToString(std::string(static_cast<const char *>(data), u32_value));
    case VARIANT_LIST: {
        std::string items;
        const variant_list_t *inner = variant_da_list(const_cast<variant_t *>(value));
        for (uint32_t i = 0; i < variant_list_size(inner); i++)
            items += (i > 0 ? ", " : "") + show(variant_list_at(inner, i));
        return "list [" + items + "]";
    }
    case VARIANT_FD:
        return "fd";
    default:
        return "none";
    }
}

std::vector<std::string> lines_of(request_t *r) {
    std::vector<std::string> lines;
    for (reply_item_t *item = reply_firstItem(request_reply(r)); item != nullptr; item = reply_nextItem(item)) {
        if (reply_item_type(item) == REPLY_ITEM_RETURN_VALUE)
            lines.push_back("value " + show(reply_item_returnValue(item)));
        else
            lines.push_back("error " + std::to_string(reply_item_error(item)) + " " +
                            reply_item_errorDescription(item) + ": " + reply_item_errorInfo(item));
    }
    return lines;
}

} // namespace support
