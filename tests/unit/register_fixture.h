// SPDX-License-Identifier: MIT
// What the tests of register.cpp share: a plugin FXS that the voice application takes, and an environment of its own.
#ifndef REGISTER_FIXTURE_H
#define REGISTER_FIXTURE_H

#include <cstdlib>
#include <cstring>

#include "voice_test.h"

namespace voice_test {

constexpr const char *kService = "VoiceService.VoiceApplication";

class Register : public VoiceTest {
protected:
    Register() { prepare(); }
    ~Register() override { forget_environment(); }

    void prepare() override {
        forget_environment();
        strcpy(_PLUGIN_NAME, "FXS");
        strcpy(ep_suffix, "FXS");
        bus().answer("register_plugin", Reply().value(Value::boolean(true)));
        bus().clear_log();
    }

    static void forget_environment() {
        unsetenv("ZIL_VOIP_IPC_SOCKET_URI");
        unsetenv("ZIL_VOIP_IPC_SOCKET");
    }
};

} // namespace voice_test

#endif
