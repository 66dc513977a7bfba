// SPDX-License-Identifier: MIT
// Lines in and lines out over a control socket, from whoever may connect to it.
#include "console.h"

#include "kex_host.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> first_words;

const char *remember(char *line) {
    char *rest = line;
    const char *word = word_next(&rest);
    first_words.push_back(word != nullptr ? word : "(none)");
    return nullptr;
}

void ended() {}

// Whoever runs the tests may have closed one: what a test opens must not take its place.
void standard_streams_fill() {
    int fd;
    do
        fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

class Console : public testing::Test {
protected:
    Console() {
        standard_streams_fill();
        EXPECT_NE(mkdtemp(directory_), nullptr);
        path_ = std::string(directory_) + "/control";
        bus_ = kex_create("console");
        first_words.clear();
    }
    ~Console() override {
        console_stop();
        kex_destroy(bus_);
        if (client_ >= 0)
            close(client_);
        unlink(path_.c_str());
        rmdir(directory_);
    }
    bool start() { return console_start(bus_, false, path_.c_str(), true, remember, ended); }
    void connect_client() {
        const sockaddr_un address = address_of(path_);
        client_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(connect(client_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    void send_text(const std::string &text) {
        ASSERT_EQ(send(client_, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }
    // What comes back when all that was sent has been taken.
    std::string received() {
        std::string text;
        for (int turns = 0; turns < 10; turns++) {
            kex_dispatch(bus_);
            char part[4096];
            const ssize_t got = recv(client_, part, sizeof part, MSG_DONTWAIT);
            text.append(part, static_cast<size_t>(got > 0 ? got : 0));
        }
        return text;
    }
    // What comes back until it ends with `end`, for at most 5 s.
    std::string received_until(const std::string &end) {
        std::string text;
        for (int turns = 0; turns < 500; turns++) {
            kex_dispatch(bus_);
            pollfd ready = {client_, POLLIN, 0};
            char part[4096];
            ssize_t got = poll(&ready, 1, 10) == 1 ? read(client_, part, sizeof part) : 0;
            text.append(part, static_cast<size_t>(got > 0 ? got : 0));
            if (text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0)
                return text;
        }
        return text;
    }

    char directory_[32] = "/tmp/console-XXXXXX";
    std::string path_;
    kex_t *bus_ = nullptr;
    int client_ = -1;
};

TEST_F(Console, LinesWithoutAWordAreNoCommands) {
    ASSERT_TRUE(start());
    connect_client();
    using namespace std::string_literals;
    send_text("\n \n\t\n \t \r\n\0\n\0status\n\r\nstatus\t\r\nhelp\0\xFF\n"s);
    EXPECT_EQ(received_until("ok\nok\n"), "ok\nok\n");
    EXPECT_EQ(first_words, (std::vector<std::string>{"status", "help"}));
}

// A terminal that has gone answers so, and the process must not look as if it had been told to leave.
TEST_F(Console, InputThatCannotBeReadIsSaidAndIsAFailure) {
    static int ends;
    ends = 0;
    const int input = dup(STDIN_FILENO);
    const int folder = open(directory_, O_RDONLY | O_DIRECTORY | O_CLOEXEC); // can be opened, not read
    ASSERT_EQ(dup2(folder, STDIN_FILENO), STDIN_FILENO);
    testing::internal::CaptureStderr();
    const bool started = console_start(bus_, true, nullptr, false, remember, [] { ends++; });
    for (int turns = 0; turns < 5; turns++)
        kex_dispatch(bus_);
    EXPECT_FALSE(console_stop());
    dup2(input, STDIN_FILENO);
    close(input);
    close(folder);
    EXPECT_TRUE(started);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "error: standard input cannot be read: Is a directory\n");
}

// Nothing would ever come from there; who may go on without input does.
TEST_F(Console, InputThatCannotBeWaitedForIsAFailureUnlessItMayEnd) {
    testing::internal::CaptureStderr(); // opens a file
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const bool needs_it = console_start(bus_, true, nullptr, false, remember, ended);
    const bool does_without = console_start(bus_, true, nullptr, true, remember, ended);
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_FALSE(needs_it);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "error: standard input cannot be waited for (closed): use a pipe, --control or --no-stdin\n");
    EXPECT_TRUE(does_without);
}

TEST_F(Console, CommandThatIsNotCarriedOutIsAnsweredWithItsReason) {
    ASSERT_TRUE(console_start(
        bus_, false, path_.c_str(), true,
        [](char *line) -> const char * { return command_error("no line '%s'", line); }, ended));
    connect_client();
    send_text("101\nwatch\n" + std::string(3000, 'x') + "\n");
    EXPECT_EQ(received_until("characters\n"),
              "error: no line '101'\nok\nerror: a command has at most 511 characters\n");
}

TEST_F(Console, OwnCommandsMayBeginWithBlanksLikeOthers) {
    ASSERT_TRUE(start());
    connect_client();
    send_text(" \t watch\n");
    EXPECT_EQ(received_until("ok\n"), "ok\n");
    EXPECT_EQ(first_words, std::vector<std::string>()) << "it is no command of the host";
    say("it happens");
    EXPECT_EQ(received_until("happens\n"), "it happens\n");
}

TEST_F(Console, OutputThatCannotBeWrittenIsSaidOnce) {
    ASSERT_TRUE(start());
    fflush(stdout);
    const int output = dup(STDOUT_FILENO);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(dup2(full, STDOUT_FILENO), STDOUT_FILENO);
    testing::internal::CaptureStderr();
    say("first");
    say("second");
    fflush(stdout);
    dup2(output, STDOUT_FILENO);
    close(output);
    close(full);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "error: standard output cannot be written: No space left on device\n");
}

TEST_F(Console, InputThatEndsIsNoFailure) {
    static int ends;
    ends = 0;
    const int input = dup(STDIN_FILENO);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(dup2(nothing, STDIN_FILENO), STDIN_FILENO);
    const bool started = console_start(bus_, true, nullptr, false, remember, [] { ends++; });
    for (int turns = 0; turns < 5; turns++)
        kex_dispatch(bus_);
    EXPECT_TRUE(console_stop());
    dup2(input, STDIN_FILENO);
    close(input);
    close(nothing);
    EXPECT_TRUE(started);
    EXPECT_EQ(ends, 1);
}

TEST_F(Console, TextsFromOutsideStayOnOneLine) {
    ASSERT_TRUE(start());
    connect_client();
    send_text("watch\n");
    ASSERT_EQ(received_until("ok\n"), "ok\n");
    say("plugin %s registered", "a\nb\r\033[2J\x7F\xC3\xA9");
    EXPECT_EQ(received_until("registered\n"), "plugin a.b..[2J.\xC3\xA9 registered\n");
    say("plugin %s left", "\xC2\x9B[31m\xE2\x80\xA8");
    EXPECT_EQ(received_until("left\n"), "plugin ..[31m... left\n");
}

TEST_F(Console, CommandOf511CharactersIsTheLongest) {
    ASSERT_TRUE(start());
    connect_client();
    send_text(std::string(511, 'x') + "\n");
    EXPECT_EQ(received_until("\n"), "ok\n");
    send_text(std::string(512, 'x') + "\nafter it\n");
    EXPECT_EQ(received_until("ok\n"), "error: a command has at most 511 characters\nok\n");
    EXPECT_EQ(first_words, (std::vector<std::string>{std::string(511, 'x'), "after"}));
}

TEST_F(Console, NinthConnectionIsToldThatThereAreEight) {
    ASSERT_TRUE(start());
    std::vector<int> others;
    for (int i = 0; i < 8; i++) {
        connect_client();
        send_text("x\n");
        EXPECT_EQ(received_until("ok\n"), "ok\n");
        others.push_back(client_);
    }
    connect_client();
    EXPECT_EQ(received_until("connections\n"), "error: too many control connections\n");
    close(client_);
    close(others.back());
    others.pop_back();
    kex_dispatch(bus_);
    connect_client();
    send_text("x\n");
    EXPECT_EQ(received_until("ok\n"), "ok\n") << "there is room again";
    for (int other : others)
        close(other);
}

// Commands that wait, by the number of each: what they are answered is up to the test.
std::vector<uint32_t> tickets;

const char *wait_or_remember(char *line) {
    if (strcmp(line, "wait") != 0)
        return remember(line);
    tickets.push_back(0);
    return command_wait(&tickets.back());
}

class ConsoleWaiting : public Console {
protected:
    ConsoleWaiting() { tickets.clear(); }
    void start_waiting() {
        ASSERT_TRUE(console_start(bus_, false, path_.c_str(), true, wait_or_remember, ended));
        connect_client();
    }
};

TEST_F(ConsoleWaiting, CommandIsAnsweredWhenItIsDoneAndWhatFollowsWaits) {
    start_waiting();
    send_text("first\nwait\nsecond\nthi");
    EXPECT_EQ(received(), "ok\n");
    send_text("rd\n");
    ASSERT_EQ(tickets.size(), 1u);
    EXPECT_EQ(received(), "");
    EXPECT_EQ(first_words, (std::vector<std::string>{"first"}));
    command_finish(tickets[0], nullptr);
    EXPECT_EQ(received_until("ok\nok\nok\n"), "ok\nok\nok\n");
    EXPECT_EQ(first_words, (std::vector<std::string>{"first", "second", "third"}));
}

TEST_F(ConsoleWaiting, OneWaitsBehindTheOtherAndReasonsAreTold) {
    start_waiting();
    send_text("wait\nwait\nlast\n");
    received();
    ASSERT_EQ(tickets.size(), 1u);
    command_finish(tickets[0], command_error("nothing came"));
    ASSERT_EQ(tickets.size(), 2u);
    EXPECT_NE(tickets[0], tickets[1]);
    EXPECT_EQ(received(), "error: nothing came\n");
    command_finish(tickets[0], nullptr); // answered already
    command_finish(0, nullptr);
    EXPECT_EQ(received(), "");
    command_finish(tickets[1], nullptr);
    EXPECT_EQ(received_until("ok\nok\n"), "ok\nok\n");
}

TEST_F(ConsoleWaiting, OthersAreServedMeanwhile) {
    start_waiting();
    send_text("wait\n");
    received();
    const int waiting = client_;
    connect_client();
    send_text("other\n");
    EXPECT_EQ(received_until("ok\n"), "ok\n");
    close(client_);
    client_ = waiting;
    command_finish(tickets[0], nullptr);
    EXPECT_EQ(received_until("ok\n"), "ok\n");
}

TEST_F(ConsoleWaiting, WhoLeavesMeanwhileIsForgottenAndItsPlaceIsFree) {
    start_waiting();
    for (int turn = 0; turn < 20; turn++) { // more than there are places
        send_text("wait\n");
        received();
        ASSERT_EQ(tickets.size(), 1u) << turn;
        close(client_);
        command_finish(tickets[0], nullptr);
        tickets.clear();
        connect_client();
        received();
    }
}

TEST_F(ConsoleWaiting, WhetherItsGiverHasLeftIsKnown) {
    start_waiting();
    send_text("wait\n");
    received();
    ASSERT_EQ(tickets.size(), 1u);
    EXPECT_FALSE(command_is_abandoned(tickets[0]));
    shutdown(client_, SHUT_WR);
    EXPECT_FALSE(command_is_abandoned(tickets[0])) << "it sends no more, but reads";
    close(client_);
    EXPECT_TRUE(command_is_abandoned(tickets[0]));
    command_finish(tickets[0], nullptr);
    EXPECT_FALSE(command_is_abandoned(tickets[0]));
    EXPECT_FALSE(command_is_abandoned(0));
    connect_client();
}

TEST_F(ConsoleWaiting, AfterItsEndNobodyIsAnswered) {
    start_waiting();
    send_text("wait\nlast\n");
    received();
    console_stop();
    command_finish(tickets[0], nullptr);
    EXPECT_EQ(first_words, std::vector<std::string>());
}

} // namespace
