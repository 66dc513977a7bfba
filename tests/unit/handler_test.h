// SPDX-License-Identifier: MIT
// What the tests of bus functions share: their trace and log messages, descriptors to send, and records that are
// broken.
#ifndef HANDLER_TEST_H
#define HANDLER_TEST_H

#include "voice_test.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace voice_test {

inline std::string read(const char *getter, const char *name, const Value &value, uint32_t attributes = 0x8001) {
    return text("argument_get%s(\"%s\", 0x%04x) = ", getter, name, attributes) + value.str();
}
inline std::string missing(const char *getter, const char *name, uint32_t attributes = 0x8001) {
    return text("argument_get%s(\"%s\", 0x%04x) = missing", getter, name, attributes);
}
// Some functions may read with the request's attributes or without any; with a call that has none the log is the same.
inline std::string plain(const char *getter, const char *name, const Value &value) {
    return read(getter, name, value, 0);
}
inline std::string absent(const char *getter, const char *name) {
    return missing(getter, name, 0);
}
inline std::string entry(const char *info) {
    return text("reply_addError(call1, 196640, \"Missing mandatory argument\", \"%s\")", info);
}
inline std::string entry_with(const char *sentence, const char *info) {
    return text("reply_addError(call1, 196638, \"%s\", \"%s\")", sentence, info);
}
inline const std::string kTrue = "return_value = bool true", kFalse = "return_value = bool false",
                         kDestroyed = "fcall_destroy(call1)";

class HandlerTest : public VoiceTest {
protected:
    ~HandlerTest() override { close_all(files_); }

    // `count` open files, the test's own.
    std::vector<int> files(size_t count) {
        while (files_.size() < count)
            files_.push_back(memfd_create("voice", MFD_CLOEXEC));
        return std::vector<int>(files_.begin(), files_.begin() + static_cast<ptrdiff_t>(count));
    }
    // Opens files before the descriptors of a run are counted.
    void have_files(size_t count) {
        files(count);
        again();
    }
    // Whether two descriptors are the same open file.
    static bool same_file(int a, int b) {
        struct stat one {
        }, two{};
        return fstat(a, &one) == 0 && fstat(b, &two) == 0 && one.st_ino == two.st_ino && a != b;
    }
    static void close_all(const std::vector<int> &descriptors) {
        for (const int descriptor : descriptors)
            if (descriptor >= 0)
                close(descriptor);
    }

private:
    std::vector<int> files_;
};

// Records that are shorter than their head, or announce more than arrived.
struct BrokenRecord : Named {
    Value (*make)(size_t head);
};

inline const BrokenRecord kBrokenRecords[] = {
    {"WithoutAValue", [](size_t) { return Value::without_value(VARIANT_BYTES); }},
    {"Empty", [](size_t) { return Value::bytes(""); }},
    {"OneByte", [](size_t) { return Value::bytes(std::string(1, '\0')); }},
    {"OneByteShortOfItsHead", [](size_t head) { return Value::bytes(std::string(head - 1, '\0')); }},
    {"OneByteTooLong", [](size_t head) { return Value::bytes(std::string(head - 4, '\0') + word(1)); }},
    {"OneByteCutOff",
     [](size_t head) { return Value::bytes(std::string(head - 4, '\0') + word(12) + std::string(11, 'x')); }},
    {"LargestLength",
     [](size_t head) { return Value::bytes(std::string(head - 4, '\0') + word(0xFFFFFFFFu) + "1234"); }},
    {"LengthThatWrapsWithTheHead",
     [](size_t head) {
         return Value::bytes(std::string(head - 4, '\0') + word(static_cast<uint32_t>(0u - head)) + "1234");
     }},
};

} // namespace voice_test

#endif
