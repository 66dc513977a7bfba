// SPDX-License-Identifier: MIT
// A plugin whose author took the steps of its start by hand and made one mistake, named on the command line:
// "misnamed", "undeclared", "classless", "long-name", "slow"; "none" makes none.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "kex_host.h"
#include "libvoice_plugin.h"

namespace {

constexpr int32_t kTelephone = 1; // endpoint type

const char *mistake;

bool makes(const char *which) {
    return strcmp(mistake, which) == 0;
}

int32_t init(const char *) {
    int32_t endpoint = -1;
    libvoice_register_endpoint(kTelephone, makes("long-name") ? "TEL1-in-the-kitchen" : "TEL1", nullptr, nullptr,
                               &endpoint);
    printf("endpoint %d\n", endpoint);
    if (makes("slow"))
        sleep(2); // on hardware that does not answer, say
    return 0;
}

int32_t leave(uint32_t) {
    kex_stop(libvoice_get_kex_handler());
    return 0;
}

int32_t set(libvoice_param_set_t *) {
    puts("set");
    return 0;
}

} // namespace

int main(int count, char **words) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    mistake = count > 1 ? words[1] : "none";
    kex_t *bus = kex_create("wrong_plugin");
    if (bus == nullptr)
        return EXIT_FAILURE;
    if (!makes("undeclared"))
        kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS);
    kex_declareObject(bus, makes("misnamed") ? "telephone" : "tel", nullptr);
    kex_declareTemplate(bus, makes("misnamed") ? "telephone.EndPoint" : "tel.EndPoint",
                        makes("classless") ? nullptr : "EndPoint");
    libvoice_set_kex_handler(bus);
    libvoice_set_pluginname("tel");
    libvoice_callbacks_t callbacks = {};
    callbacks.voice_plugin_init = init;
    callbacks.voice_plugin_exit = leave;
    callbacks.voice_plugin_set = set;
    libvoice_init(callbacks);
    kex_run(bus);
    kex_destroy(bus);
    return EXIT_SUCCESS;
}
