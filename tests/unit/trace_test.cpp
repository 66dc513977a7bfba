// SPDX-License-Identifier: MIT
// The frame of every line, seen through functions of the library: format, arguments, level and way.
#include "trace.h"
#include "voice_test.h"

namespace voice_test {
namespace {

constexpr char kEnterFormat[] = "%s%-7.7s%s - >>>>>>>>>>%s - %s(%s@%s:%d)%s";
constexpr char kLeaveFormat[] = "%s%-7.7s%s - <<<<<<<<<<%s - %s(%s@%s:%d)%s";
#define FRAME(message) "%s%-7.7s%s - %s[%s]%s%s" message "%s - %s(%s@%s:%d)%s"

class Trace : public VoiceTest {};

TEST_F(Trace, ErrorsKeepTheFrameAndCarryNoZoneArgument) {
    uint8_t byte = 1, *cursor = &byte, *value = nullptr;
    uint32_t remaining = 1, length = 0;
    libvoice_get_param(1, &length, &value, &cursor, &remaining);
    ASSERT_EQ(bus().traces().size(), 1u);
    const fake::TraceLine &line = bus().traces()[0];
    EXPECT_EQ(line.level, 100);
    EXPECT_FALSE(line.zoned);
    EXPECT_EQ(line.format, FRAME("Error buflen < 4"));
    EXPECT_EQ(line.rendered, text("LIBV    - [x]Error buflen < 4 - (libvoice_p_id@params.cpp:%d)", line.line));
}

TEST_F(Trace, InformationCarriesItsZoneForTheFilter) {
    libvoice_set_pluginname("FXS");
    ASSERT_EQ(bus().traces().size(), 3u);
    const fake::TraceLine &line = bus().traces()[1];
    EXPECT_EQ(line.level, 400);
    EXPECT_TRUE(line.zoned);
    EXPECT_EQ(line.zone_argument, "LIBV");
    EXPECT_EQ(line.format, FRAME("Setting plugin name to %s."));
    EXPECT_EQ(line.rendered,
              text("LIBV    - [i]Setting plugin name to FXS. - (libvoice_set_pluginname@generic.cpp:%d)", line.line));
}

TEST_F(Trace, MarkersHaveNoTagAndTheirOwnLines) {
    libvoice_get_pluginname();
    ASSERT_EQ(bus().traces().size(), 2u);
    const fake::TraceLine &enter = bus().traces()[0], &leave = bus().traces()[1];
    EXPECT_EQ(enter.level, 500);
    EXPECT_EQ(leave.level, 500);
    EXPECT_EQ(enter.format, kEnterFormat);
    EXPECT_EQ(leave.format, kLeaveFormat);
    EXPECT_EQ(enter.rendered, text("LIBV    - >>>>>>>>>> - (libvoice_get_pluginname@generic.cpp:%d)", enter.line));
    EXPECT_EQ(leave.rendered, text("LIBV    - <<<<<<<<<< - (libvoice_get_pluginname@generic.cpp:%d)", leave.line));
    EXPECT_LT(enter.line, leave.line);
}

// One that has none and traces does not compile.
TEST_F(Trace, AFileHasItsPlaceInTheTableByItsNameWithoutFolders) {
    for (const char *path : {"params.cpp", "src/params.cpp", "/src/trace/params.cpp"})
        EXPECT_EQ(voice::file_number(path), voice::file_number("params.cpp")) << path;
    EXPECT_LT(voice::file_number("params.cpp"), voice::kFileCount);
    for (const char *path : {"", "params", "params.cpp.orig", "params.cpp/"})
        EXPECT_EQ(voice::file_number(path), voice::kFileCount) << path;
}

TEST_F(Trace, TheZoneFieldIsSevenWide) {
    const struct {
        const char *field, *zone;
        void (*write)();
        unsigned blocks_left = 0;
    } rows[] = {
        {"LIBV   ", "LIBV", [] { libvoice_plugin_get_entry(nullptr); }},
        {"SIGNAL ", "SIGNAL", [] { libvoice_send_signal(nullptr); }},
        {"VOIPCFG", "VOIPCFG", [] { libvoice_set_params(5, 1, std::string(300, 'v').data(), 300); }, 1},
        {"SIGNL  ", "SIGNL", [] { libvoice_db_call_setup_decode("", 0, nullptr, nullptr); }},
        {"MEDIA  ", "MEDIA", [] { libvoice_codec_sampling_rate(96); }},
        {"GEN    ", "GEN", [] { voice_service_strerror(13); }},
        {"CALL_HO", "CALL_HOLD",
         [] {
             Call call;
             call.with("cnx_info", Value::bytes("info")).with("filedesc", Value::fds({-1}));
             call.run(__DSP_CHANNEL_modify);
         }},
    };
    for (const auto &row : rows) {
        fresh();
        have_endpoint(0, "FXS1", 5, have_plugin(0, "FXS", bus().peer("fxs")));
        row.write();
        const fake::TraceLine *last = nullptr;
        for (const fake::TraceLine &line : bus().traces())
            if (!line.marker)
                last = &line;
        ASSERT_NE(last, nullptr) << row.zone;
        EXPECT_EQ(last->zone, row.zone);
        EXPECT_EQ(last->rendered.substr(0, 12), std::string(row.field) + " - [" + last->tag) << row.zone;
        leaves_memory(row.blocks_left);
        EXPECT_THAT(settle(), IsEmpty()) << row.zone;
    }
}

TEST_F(Trace, EachExitPathShowsItsOwnLine) {
    have_endpoint(0, "FXS1", 5);
    libvoice_get_endpoint_index_by_name("FXS1");
    libvoice_get_endpoint_index_by_name("none");
    ASSERT_EQ(bus().traces().size(), 4u);
    EXPECT_EQ(bus().traces()[0].line, bus().traces()[2].line);
    EXPECT_NE(bus().traces()[1].line, bus().traces()[3].line);
}

} // namespace
} // namespace voice_test
