// SPDX-License-Identifier: MIT
// Who works on a call, and who is blocked by one.
#include "ladder_activity.h"

#include <string>

#include "ladder_model_fixture.h"

using namespace voicectl;

namespace {

TEST_F(LadderModelTest, CallerIsBlockedFromItsCallToTheAnswer) {
    register_line();
    take(Sample(KEX_TAP_CALL, kIn, 1, "fxs_plugin", 2000).call(5, kService, "event"));
    take(Sample(KEX_TAP_WAITING, kIn, 1, "fxs_plugin", 4000).serial(5));
    take(Sample(KEX_TAP_REPLY, kOut, 1, "fxs_plugin", 5000).serial(5).with_bool("", true));
    take(Sample(KEX_TAP_CALL, kIn, 1, "fxs_plugin", 5001).call(6, kService, "event"));
    take(Sample(KEX_TAP_REPLY, kOut, 1, "fxs_plugin", 5002).serial(6).with_bool("", true));
    const LadderModel ladder = feed.finish("x");
    const size_t application = 1, plugin = 0;
    ASSERT_EQ(lanes(ladder), "fxs_a voice_application");
    std::string blocked, busy;
    LadderActivity activity(ladder);
    for (size_t row = 0; row < ladder.rows.size(); ++row) {
        activity.before(row);
        blocked += activity.is_blocked(plugin) ? 'X' : '.';
        busy += activity.is_busy(application) ? 'X' : '.';
        EXPECT_FALSE(activity.is_blocked(application));
        activity.after(row);
    }
    EXPECT_EQ(blocked, ".....X...");
    EXPECT_EQ(busy, ".....X...");
    EXPECT_EQ(ladder.rows[5].kind, Kind::wait);
    EXPECT_EQ(lane(ladder, ladder.rows[5].from), "fxs_a");
    EXPECT_EQ(ladder.rows[5].partner, 4);
}

// Row by row from a first one on, whether the process of a lane works: 'X'.
std::string busy_of(const LadderModel &ladder, size_t lane, size_t first = 0) {
    std::string busy;
    LadderActivity activity(ladder);
    for (size_t row = first; row < ladder.rows.size(); ++row) {
        activity.before(row);
        activity.after(row);
        busy += activity.is_busy(lane) ? 'X' : '.';
    }
    return busy;
}

TEST_F(LadderModelTest, AnswerFromBeforeItsCallEndsNoOther) {
    register_line();
    take(Sample(KEX_TAP_CALL, kIn, 1, "fxs_plugin", 3000).call(5, kService, "event"));
    take(Sample(KEX_TAP_REPLY, kOut, 1, "fxs_plugin", 2000).serial(5).with_bool("", true));
    take(Sample(KEX_TAP_CALL, kIn, 1, "fxs_plugin", 5000).call(6, kService, "event"));
    take(Sample(KEX_TAP_REPLY, kOut, 1, "fxs_plugin", 5001).serial(6).with_bool("", true));
    const LadderModel ladder = feed.finish("x");
    const size_t application = 1;
    const std::string busy = busy_of(ladder, application);
    EXPECT_EQ(busy.substr(busy.size() - 2), "X.");
}

// As a plugin's bus answers an application whose "init" found nothing.
TEST_F(LadderModelTest, AnswerToAOneWayCallEndsNoOther) {
    register_line();
    take(Sample(KEX_TAP_ONE_WAY_CALL, kOut, 1, "fxs_plugin", 2000).call(5, "fxs_a", "init"));
    take(Sample(KEX_TAP_REPLY, kIn, 1, "fxs_plugin", 4000).serial(5).with_error(65537, "No such object", "fxs_a"));
    take(Sample(KEX_TAP_CALL, kOut, 1, "fxs_plugin", 5000).call(6, "fxs_a", "get"));
    take(Sample(KEX_TAP_REPLY, kIn, 1, "fxs_plugin", 5001).serial(6).with_bool("", true));
    const LadderModel ladder = feed.finish("x");
    const size_t plugin = 0;
    EXPECT_EQ(busy_of(ladder, plugin, 4), "..X.");
    EXPECT_FALSE(LadderActivity(ladder).blocks(4)) << "nobody waits for it";
}

TEST_F(LadderModelTest, CallWithoutAnAnswerBlocksToTheEnd) {
    register_line();
    take(Sample(KEX_TAP_CALL, kIn, 1, "fxs_plugin", 2000).call(5, kService, "event"));
    event(4, 9000);
    const LadderModel ladder = feed.finish("x");
    EXPECT_TRUE(ladder.is_unanswered(ladder.rows[4]));
    LadderActivity activity(ladder);
    EXPECT_TRUE(activity.blocks(4));
    EXPECT_FALSE(activity.blocks(0));
}

} // namespace
