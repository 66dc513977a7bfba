// SPDX-License-Identifier: MIT
// Lines of a driver that writes down what it is asked, on the fake bus. What the plugin would print is written down
// too.
#pragma once

#include "line_plugin.h"
#include "media_records.h"
#include "voice_records.h"

#include "voice_fake/gtest.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

// What the driver was asked, and what was said and done to the process, in order.
extern std::vector<std::string> happened;

// Thrown where the process would end: its status, and what it would say.
struct process_end {
    int status;
    std::string text;
};

class LineTest : public fake::BusTest {
protected:
    using Texts = std::vector<std::string>;

    LineTest();
    void TearDown() override;

    // Adds a line with the whole driver, or with one of the test's own.
    line_t *add(const char *name = "L1", const line_driver_t *driver = nullptr);
    // "init" comes, and the application answers each registration with this number.
    void init(int32_t endpoint = 7);
    // The events that have been sent, as "7 LIBVOICE_EVENT_al_of line=0".
    Texts events() const;
    // The parameters of the last event.
    static bool event_int(uint32_t id, int32_t *value);
    static std::string event_text(uint32_t id);
    // What the driver answers from now on to whatever it can reject; null: done.
    static void answers(const char *text);
    // What has happened since the last question.
    Texts news();
    // Ten entries, each descriptor a new one of /dev/null; -1 behind `count`.
    void fill_descriptors(int32_t *descriptors, int count);
    static bool is_open(int32_t descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

    line_driver_t driver_ = {};
    libvoice_callbacks_t callbacks_ = line_plugin_callbacks();
};
