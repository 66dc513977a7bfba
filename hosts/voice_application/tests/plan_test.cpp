// SPDX-License-Identifier: MIT
#include "plan.h"

#include "voice_records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <unistd.h>

namespace {

class Plan : public testing::Test {
protected:
    // What reading this file answers: "" when it is fine, else the sentence after the file's name.
    std::string load(const char *text) {
        char name[] = "/tmp/hosts-plan-XXXXXX";
        int fd = mkstemp(name);
        EXPECT_EQ(write(fd, text, strlen(text)), static_cast<ssize_t>(strlen(text)));
        close(fd);
        const char *wrong = plan_load(&plan_, name);
        unlink(name);
        return wrong == nullptr ? "" : wrong + strlen(name);
    }

    plan plan_;
};

std::string default_number(int32_t type, const char *plugin, const char *endpoint) {
    char number[kNumberBytes];
    return plan_default_number(type, plugin, endpoint, number) ? number : "none";
}

} // namespace

TEST_F(Plan, EachLineReplacesADefault) {
    EXPECT_EQ(load("# a comment\n\ncountry AT\nnumber 10 FXS1 \"Front door\"\nnumber 11 fxs2.FXS1\nexchange 9 FXO2\n"
                   "incoming 11\ncodecs pcmu,PCMA\naddress 127.0.0.2\nports 40000-40003\n"),
              "");
    EXPECT_STREQ(plan_.country, "AT");
    ASSERT_EQ(plan_.number_count, 2u);
    EXPECT_STREQ(plan_find(&plan_, "fxs1", "FXS1")->name, "Front door");
    EXPECT_STREQ(plan_find(&plan_, "fxs2", "FXS1")->number, "10") << "the first line that fits";
    EXPECT_EQ(plan_find(&plan_, "fxs2", "FXS2"), nullptr);
    EXPECT_STREQ(plan_.exchange_prefix, "9");
    EXPECT_STREQ(plan_.exchange_endpoint, "FXO2");
    EXPECT_STREQ(plan_.incoming_number, "11");
    ASSERT_EQ(plan_.codec_count, 2u);
    EXPECT_EQ(plan_.codecs[0], static_cast<uint32_t>(LIBVOICE_CODEC_PCMU));
    EXPECT_EQ(plan_.first_port, 40000);
    EXPECT_EQ(plan_.last_port, 40003);
}

TEST_F(Plan, TheFirstBadLineIsNamed) {
    EXPECT_EQ(load("country DE\ncuontry AT\n"),
              ":2: unknown word; known are country, number, exchange, incoming, emergency, codecs, "
              "address, ports");
    EXPECT_EQ(load("country Germany\n"), ":1: country: expected two capital letters");
    EXPECT_EQ(load("number 1x FXS1\n"), ":1: number: expected digits");
    EXPECT_EQ(load("number 10\n"), ":1: number: expected an endpoint name");
    EXPECT_EQ(load("number 20 A\nnumber 20 B\n"), ":2: number: given twice");
    EXPECT_EQ(load("codecs PCMA,OPUSS\n"), ":1: codecs: expected names like PCMA,PCMU,G722");
    // A call needs two pairs, of which each begins with an even one.
    for (const char *ports : {"30000", "30000-30002", "30001-30004", "65533-65535"})
        EXPECT_EQ(load((std::string("ports ") + ports + "\n").c_str()),
                  ":1: ports: expected a range of four ports or more from an even one on, like 30000-30199")
            << ports;
    EXPECT_EQ(load("ports 30001-30005\n"), "");
    EXPECT_EQ(load("address localhost\n"), ":1: address: expected an IPv4 address");
}

TEST_F(Plan, WhatWouldSilentlyMeanSomethingElseIsSaid) {
    EXPECT_EQ(load("number 10 FXS1 \"Kitchen\nnumber 11 FXS2\n"), ":1: a quote is not closed");
    EXPECT_EQ(load("country DE\n\"\n"), ":2: a quote is not closed");
    EXPECT_EQ(load("# a \"comment\n"), "");
    EXPECT_EQ(load("number 10 FXS1 5\"-screen\n"), "") << "no quote at its begin";
    plan_ = plan();
    EXPECT_EQ(load("number 12 FXS1 Front door\n"), ":1: 'door' is too much: a name with blanks stands in quotes");
    EXPECT_EQ(load("number 30 FXS5\nnumber 31 FXS5\n"), ":2: number: its endpoint has one already");
    EXPECT_EQ(load("country DE AT\n"), ":1: 'AT' is too much: a name with blanks stands in quotes");
}

TEST_F(Plan, NumberThatExchangeLinesRingIsSomebodys) {
    EXPECT_EQ(load("country DE\nincoming 10\nnumber 11 FXS1\n"), ":2: incoming: no line has this number");
    plan_ = plan();
    EXPECT_EQ(load("incoming 11\nnumber 11 FXS1\n"), "") << "it may stand in front";
    for (const char *by_name : {"101", "199", "899", "510"}) {
        plan_ = plan();
        EXPECT_EQ(load((std::string("incoming ") + by_name + "\n").c_str()), "") << "a name gives it: " << by_name;
    }
    for (const char *nobodys : {"100", "001", "901", "1010", "10", "1*1", "110"}) {
        plan_ = plan();
        EXPECT_EQ(load((std::string("incoming ") + nobodys + "\n").c_str()), ":1: incoming: no line has this number");
    }
}

// A file that is being written, or was on a full disk.
TEST_F(Plan, FileThatIsCutAnywhereIsReadOrNamed) {
    const std::string whole = "# all\ncountry AT\nnumber 10 FXS1 \"Front door\"\nnumber 11 fxs2.FXS1\nexchange 9 FXO2\n"
                              "incoming 11\ncodecs pcmu,PCMA\naddress 127.0.0.2\nports 40000-40003\n";
    unsigned refused = 0;
    for (size_t end = 0; end <= whole.size(); end++) {
        plan_ = plan();
        const std::string begin = whole.substr(0, end);
        const std::string wrong = load(begin.c_str());
        const std::string place = ":" + std::to_string(std::count(begin.begin(), begin.end(), '\n') + 1) + ": ";
        EXPECT_TRUE(wrong.empty() || wrong.rfind(place, 0) == 0) << begin << "|" << wrong;
        refused += !wrong.empty();
    }
    EXPECT_GT(refused, 60u);
    EXPECT_LT(refused, whole.size() - 20);
}

TEST_F(Plan, AMissingFileIsAnError) {
    EXPECT_STREQ(plan_load(&plan_, "/nowhere/plan.conf"), "/nowhere/plan.conf: No such file or directory");
}

TEST(DefaultNumber, FollowsFromTheNames) {
    EXPECT_EQ(default_number(VOICE_ENDPOINT_FXS, "fxs1", "FXS2"), "102");
    EXPECT_EQ(default_number(VOICE_ENDPOINT_FXS, "fxs2", "FXS1"), "201");
    EXPECT_EQ(default_number(VOICE_ENDPOINT_FXS, "lines", "A12"), "112");
    EXPECT_EQ(default_number(VOICE_ENDPOINT_DECT, "dect1", "DECT1"), "501");
    EXPECT_EQ(default_number(VOICE_ENDPOINT_FXO, "fxo1", "FXO1"), "none");
    EXPECT_EQ(default_number(VOICE_ENDPOINT_FXS, "fxs9", "FXS1"), "none");
    EXPECT_EQ(default_number(VOICE_ENDPOINT_FXS, "fxs1", "FXS100"), "none");
}

TEST_F(Plan, EmergencyNumbersAreThoseOfTheCountryOrOfTheFile) {
    EXPECT_STREQ(plan_emergency(&plan_), "112 110");
    EXPECT_EQ(load("country AU\n"), "");
    EXPECT_STREQ(plan_emergency(&plan_), "112 000");
    EXPECT_EQ(load("emergency 112 113\nemergency 0110\n"), "");
    EXPECT_STREQ(plan_emergency(&plan_), "112 113 0110");
    plan_ = plan();
    EXPECT_EQ(load("emergency\n"), ":1: emergency: expected digits");
    EXPECT_EQ(load("emergency 112 police\n"), ":1: emergency: expected digits");
    std::string many = "emergency";
    for (int i = 0; i < 24; i++)
        many += " " + std::to_string(100 + i);
    plan_ = plan();
    EXPECT_EQ(load((many + "\n").c_str()), "") << "95 characters";
    plan_ = plan();
    EXPECT_EQ(load((many + " 1\n").c_str()), ":1: emergency: too many numbers");
}

TEST_F(Plan, NoLineIsGivenAnEmergencyNumber) {
    EXPECT_EQ(load("number 10 FXS1\nnumber 110 FXS2\nexchange 0\n"), ":2: number: this is an emergency number");
    plan_ = plan();
    EXPECT_EQ(load("number 10 FXS1\nnumber 110 FXS2\ncountry FR\n"), "") << "not there";
}

TEST_F(Plan, HasThirtyTwoNumbersAndEightCodecs) {
    std::string rows;
    for (int i = 0; i < 32; i++)
        rows += "number " + std::to_string(200 + i) + " FXS" + std::to_string(1 + i) + "\n";
    EXPECT_EQ(load(rows.c_str()), "");
    plan_ = plan();
    EXPECT_EQ(load((rows + "number 300 FXS33\n").c_str()), ":33: too many numbers");
    EXPECT_EQ(load("codecs PCMA,PCMA,PCMA,PCMA,PCMA,PCMA,PCMA,PCMA\n"), "");
    EXPECT_EQ(load("codecs PCMA,PCMA,PCMA,PCMA,PCMA,PCMA,PCMA,PCMA,PCMA\n"),
              ":1: codecs: expected names like PCMA,PCMU,G722");
}

// On a telephone it ends the number: what follows could not be dialled.
TEST_F(Plan, NumbersHaveAHashInFrontOnly) {
    EXPECT_EQ(load("number #21 FXS1\nnumber *21 FXS2\nexchange #9\nemergency #112\n"), "");
    plan_ = plan();
    EXPECT_EQ(load("number 2#1 FXS1\n"), ":1: number: expected digits");
    EXPECT_EQ(load("number 21# FXS1\n"), ":1: number: expected digits");
    EXPECT_EQ(load("exchange 9#\n"), ":1: exchange: expected a prefix of up to 7 digits");
    EXPECT_EQ(load("emergency 112#\n"), ":1: emergency: expected digits");
}

TEST_F(Plan, WhatIsNoTextIsRefused) {
    std::string wrong = ":1: a line is longer than 254 characters, or this is no text";
    EXPECT_EQ(load(("# " + std::string(252, 'x') + "\ncountry AT\n").c_str()), "") << "254 are fine";
    EXPECT_EQ(load(("# " + std::string(253, 'x') + "\n").c_str()), wrong);
    EXPECT_EQ(load(("# " + std::string(253, 'x') + "country AT\n").c_str()), wrong) << "no line of its own";
    char name[] = "/tmp/hosts-plan-XXXXXX";
    int fd = mkstemp(name);
    EXPECT_EQ(write(fd, "country\0AT\n", 11), 11);
    close(fd);
    EXPECT_EQ(plan_load(&plan_, name), name + wrong);
    unlink(name);
    EXPECT_STREQ(plan_load(&plan_, "/tmp"), "/tmp: Is a directory");
}
