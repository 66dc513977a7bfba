// SPDX-License-Identifier: MIT
// What holds for all requests: whichever call of the platform fails, the answer is the promised one and nothing is left.
#include "kex_api_calls_fixture.h"

namespace voice_test {
namespace {

struct Sender : Named {
    int64_t (*send)();
    int64_t success;
    // What the sender answers, the requests and the blocks it leaves when a function fails; others change nothing.
    struct Failure {
        const char *function;
        int64_t answer;
        unsigned lines;
        unsigned requests;
    };
    std::vector<Failure> failures;
    unsigned requests_left = 0; // after success
    unsigned blocks_left = 0;
};

class NthFailure : public Requests, public testing::WithParamInterface<Sender> {};

TEST_P(NthFailure, EveryRunEndsAsPromised) {
    const Sender &row = GetParam();
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 60u);
        again();
        libvoice_app_registered_callbacks.voice_app_get_done = on_get_done;
        bus().answer("register_plugin", Reply().value(Value::boolean(true)));
        bus().fail_call(n);
        const int64_t answer = row.send();
        const std::string failed = bus().failed();
        Sender::Failure expected = {"", row.success, 0, row.requests_left};
        unsigned blocks = row.blocks_left;
        for (const Sender::Failure &failure : row.failures)
            if (failed == failure.function) {
                expected = failure;
                blocks = 0;
            }
        SCOPED_TRACE(text("call %u, %s, failed", n, failed.empty() ? "none" : failed.c_str()));
        EXPECT_EQ(answer, expected.answer);
        EXPECT_EQ(bus().complaints().size(), expected.lines);
        if (expected.requests)
            bus().leaves_requests(expected.requests, "as documented");
        leaves_memory(blocks);
        expect_settled(text("%s, call %u (%s) fails", row.name, n, failed.c_str()));
        if (failed.empty())
            break;
    }
}

#define CREATE "request_create_executeFunction"
#define SEND "kex_sendRequest"

alignas(8) char media[736], stream[712];
const int32_t no_descriptors[3] = {-1, -1, -1};
libvoice_signal_t small_signal = {5, {}, 0, 0};
libvoice_event_t small_event = {5, {}, 0, 0};

INSTANTIATE_TEST_SUITE_P(
    , NthFailure,
    testing::Values(Sender{"register_plugin",
                           [] { return int64_t{libvoice_kex_register_plugin("FXS")}; },
                           1,
                           {{CREATE, 0, 1, 0},
                            {SEND, 0, 1, 0},
                            {"kex_waitForReply", 0, 1, 0},
                            {"request_reply", 0, 1, 0},
                            {"variant_toBool", 0, 0, 0}}},
                    Sender{"event",
                           [] { return int64_t{libvoice_send_event(&small_event)}; },
                           0,
                           {{CREATE, 1, 1, 0}, {SEND, 1, 1, 1}}},
                    Sender{"init",
                           [] { return int64_t{libvoice_kex_init_plugin("FXS", "AT")}; },
                           1,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 0, 0}}},
                    Sender{"exit",
                           [] { return int64_t{libvoice_kex_exit_plugin("FXS", 1)}; },
                           1,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 0, 0}}},
                    Sender{"signal",
                           [] { return libvoice_send_signal(&small_signal), int64_t{0}; },
                           0,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 1, 0}}},
                    Sender{"create",
                           [] { return int64_t{libvoice_create_media(5, 1, media, -1, -1, -1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 5, 1, 0}, {"variant_da_list", 5, 1, 0}}},
                    Sender{"modify",
                           [] { return int64_t{libvoice_modify_media(5, 1, media, -1, -1, -1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 5, 1, 0}, {"variant_da_list", 5, 1, 0}}},
                    Sender{"destroy",
                           [] { return libvoice_destroy_media(5, 1), int64_t{0}; },
                           0,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 1, 0}}},
                    Sender{"set",
                           [] { return int64_t{libvoice_set_params(5, kId, "x", 1)}; },
                           1,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 1, 0}}},
                    Sender{"get",
                           [] { return int64_t{libvoice_get_params(5, kId, 1)}; },
                           1,
                           {{CREATE, 0, 1, 0}, {SEND, 0, 1, 0}},
                           1,
                           1},
                    Sender{"create_ctx",
                           [] { return int64_t{libvoice_create_ctx("FXS", 1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}}},
                    Sender{"add_stream",
                           [] { return int64_t{libvoice_add_stream("FXS", 5, 1, stream, no_descriptors, 1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}, {"variant_da_list", 4, 1, 0}}},
                    Sender{"modify_stream",
                           [] { return int64_t{libvoice_modify_stream("FXS", 1, stream)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}}},
                    Sender{"remove_stream",
                           [] { return int64_t{libvoice_remove_stream("FXS", 1, 1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}}},
                    Sender{"destroy_ctx",
                           [] { return int64_t{libvoice_destroy_ctx("FXS", 1)}; },
                           0,
                           {{CREATE, 12, 1, 0}, {SEND, 4, 1, 0}}}),
    [](const auto &row) { return row.param.name; });

} // namespace
} // namespace voice_test
