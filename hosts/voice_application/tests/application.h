// SPDX-License-Identifier: MIT
// The voice application without its process: its callbacks on the fake bus, plugins that register and send events as
// over a real one, and what they are sent as short text.
#pragma once

#include "libvoice_plugin.h"
#include "lines.h"
#include "voice_fake/gtest.h"
#include "voice_records.h"

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace application_test {

using fake::bus;
using fake::Reply;
using fake::Value;

// One word in host byte order, and one item of a parameter buffer, laid out by hand.
std::string word(uint32_t value);
std::string item(uint32_t id, const std::string &value);

extern const voice_codec_t kPcma, kPcmu, kG722;

// From its start, as main() makes it, to its end. One at a time.
class Application {
public:
    Application();
    ~Application();
    Application(const Application &) = delete;
    Application &operator=(const Application &) = delete;

    // A plugin registers; its peer has its name.
    void register_plugin(const std::string &name);
    // An endpoint of a plugin that has registered. What sent() calls it; empty: its name.
    // @return its number, or -1 when the application rejected it
    int32_t register_endpoint(const std::string &plugin, const std::string &name, int32_t type,
                              std::initializer_list<voice_codec_t> codecs = {kPcma, kPcmu},
                              const std::string &label = "");
    void deregister_endpoint(int32_t endpoint);
    // An event of an endpoint, from its plugin.
    void event(int32_t endpoint, uint32_t event, const std::string &params = "", uint32_t appearance = 0);
    // A connection closes without a word.
    void close(const std::string &plugin);

    // Every digit by an event of its own.
    void dial(int32_t endpoint, const std::string &digits);

    // What was sent since the last look, by receiver in the order of their names, each with its own order:
    // "101: silence, create | 201: cg_bt".
    std::string sent();
    // Parameters of the last signal of an identifier that was sent at all; empty: there was none.
    std::string params_of_signal(uint32_t signal);
    // The lines of output since the last look, numbers of calls and conferences as "N".
    std::vector<std::string> said();

    // "talking", or "gone".
    static std::string state(int32_t endpoint);

private:
    std::string label_of(const std::string &path) const;

    std::string output_;
    unsigned looked_ = 0; // requests up to this one are known
    std::map<std::string, std::string> labels_;
    std::vector<std::string> plugins_;
};

// A test with an application that has no plugin yet; ends with nothing left on the bus.
class ApplicationTest : public fake::BusTest {
protected:
    void TearDown() override {
        app_.reset();
        fake::BusTest::TearDown();
    }
    Application &app() { return *app_; }

private:
    std::unique_ptr<Application> app_ = std::make_unique<Application>();
};

} // namespace application_test
