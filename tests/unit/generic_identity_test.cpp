// SPDX-License-Identifier: MIT
// The plugin's name, the stem of its endpoints' names, and the start of the application.
#include "generic_fixture.h"

namespace voice_test {
namespace {

class Identity : public Generic {};

TEST_F(Identity, ThePluginNameIsTracedAsGivenAndCut) {
    for (const size_t length : {0u, 1u, 254u, 255u, 256u, 300u}) {
        bus().clear_log();
        const std::string name(length, 'p');
        memset(_PLUGIN_NAME, 'z', sizeof(_PLUGIN_NAME));
        libvoice_set_pluginname(name.c_str());
        EXPECT_LOG("> libvoice_set_pluginname@generic",
                   "i libvoice_set_pluginname@generic: Setting plugin name to " + name + ".",
                   "< libvoice_set_pluginname@generic");
        EXPECT_EQ(std::string(_PLUGIN_NAME), name.substr(0, 255));
    }
    bus().clear_log();
    EXPECT_EQ(libvoice_get_pluginname(), _PLUGIN_NAME);
    EXPECT_LOG("> libvoice_get_pluginname@generic", "< libvoice_get_pluginname@generic");
}

TEST_F(Identity, TheStemIsTracedAsGivenAndCut) {
    for (const size_t length : {0u, 1u, 12u, 13u, 14u, 16u, 300u}) {
        bus().clear_log();
        const std::string stem(length, 's');
        memset(ep_suffix, 'z', sizeof(ep_suffix));
        libvoice_set_ep_suffix(stem.c_str());
        EXPECT_LOG_WITHOUT_MARKERS("i libvoice_set_ep_suffix@generic: Setting ep_suffix to " + stem + ".");
        EXPECT_EQ(std::string(ep_suffix), stem.substr(0, 13));
    }
    bus().clear_log();
    EXPECT_EQ(libvoice_get_ep_suffix(), ep_suffix);
    EXPECT_LOG("> libvoice_get_ep_suffix@generic", "< libvoice_get_ep_suffix@generic");
}

TEST_F(Identity, SizesAreAsPublished) {
    EXPECT_EQ(sizeof(_PLUGIN_NAME), 256u);
    EXPECT_EQ(sizeof(ep_suffix), 14u);
}

TEST_F(Identity, TheApplicationStartsWithEachNumberItsIndex) {
    fill_table();
    endpt_table[7].userdata = this;
    libvoice_app_callbacks_t callbacks{};
    callbacks.voice_app_endpoint_deleted = [](libvoice_endpoint_t *) {};
    libvoice_app_init(callbacks);
    EXPECT_LOG_WITHOUT_MARKERS("i libvoice_app_init@generic: init is called");
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(endpt_table[i].used, 0u);
        EXPECT_EQ(endpt_table[i].endpoint, i);
        EXPECT_EQ(std::string(endpt_table[i].name), text("E%d", i)) << "names are not touched";
    }
    EXPECT_EQ(endpt_table[7].userdata, this);
    EXPECT_EQ(get_endpt_entry(7), &endpt_table[7]);
    EXPECT_EQ(memcmp(&libvoice_app_registered_callbacks, &callbacks, sizeof(callbacks)), 0);
    EXPECT_EQ(sizeof(callbacks), 7 * sizeof(void *));
    libvoice_app_init(libvoice_app_callbacks_t());
    EXPECT_EQ(libvoice_app_registered_callbacks.voice_app_endpoint_deleted, nullptr);
}

} // namespace
} // namespace voice_test
