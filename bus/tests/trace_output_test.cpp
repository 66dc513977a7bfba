// SPDX-License-Identifier: MIT
// Where trace messages go when nobody takes them: they are kept, then counted, and nobody waits.
#include "base/trace.h"
#include "base/trace_limit.h"
#include "base/trace_output.h"
#include "support/bus_test.h"
#include "ziltrace.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

// Standard error of this process is this descriptor as long as the object lives.
class StandardError {
public:
    explicit StandardError(int fd) : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) { dup2(fd, STDERR_FILENO); }
    ~StandardError() {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
    }
    StandardError(const StandardError &) = delete;
    StandardError &operator=(const StandardError &) = delete;

private:
    int saved_;
};

class TraceOutput : public DescriptorTest {
protected:
    TraceOutput() {
        bus::trace_configure();
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    }
    ~TraceOutput() override {
        close(ends[0]);
        close(ends[1]);
        unsetenv("ZIL_TRACE_OUTPUT");
        bus::trace_configure();
    }

    // All that lies in the pipe now.
    std::string read_all() const {
        std::string all;
        char part[4096];
        pollfd ready = {ends[0], POLLIN, 0};
        while (poll(&ready, 1, 0) == 1) {
            const ssize_t count = read(ends[0], part, sizeof part);
            if (count <= 0)
                break;
            all.append(part, static_cast<size_t>(count));
        }
        return all;
    }
    // Reads and lets what waits be written, until nothing waits.
    std::string read_everything() const {
        std::string all = read_all();
        while (bus::trace_output_retry() != 0) {
            bus::trace_catch_up();
            all += read_all();
        }
        return all;
    }
    // All that a process writes, which ends without a fault.
    std::string read_until_end(pid_t process) const {
        std::string all;
        int status = -1;
        while (waitpid(process, &status, WNOHANG) == 0) {
            all += read_all();
            usleep(2000);
        }
        all += read_all();
        EXPECT_EQ(status, 0);
        return all;
    }

    int ends[2] = {-1, -1};
};

// Messages of 100 bytes and a line break, numbered.
std::string message(size_t number) {
    std::string text = "message " + std::to_string(number) + " ";
    return text + std::string(100 - text.size(), 'x');
}

TEST_F(TraceOutput, FullPipeHoldsNobodyUpAndNothingIsLost) {
    std::string expected;
    const StandardError standard_error(ends[1]);
    for (size_t i = 0; i < 2000; i++) { // 200 KiB, the pipe takes 64
        zilTrace(100, "%s", message(i).c_str());
        expected += message(i) + "\n";
    }
    EXPECT_GT(bus::trace_output_retry(), 0u);
    EXPECT_EQ(read_everything(), expected);
}

TEST_F(TraceOutput, MoreThanTheBufferHoldsIsCounted) {
    const StandardError standard_error(ends[1]);
    for (size_t i = 0; i < 10000; i++)
        zilTrace(100, "%s", message(i).c_str());
    const std::string all = read_everything();
    const size_t lines = static_cast<size_t>(std::count(all.begin(), all.end(), '\n'));
    EXPECT_LE(all.size(), size_t{64 + 256} * 1024);
    EXPECT_GE(all.size(), size_t{64 + 220} * 1024);
    EXPECT_THAT(all.substr(all.size() - 100), HasSubstr("KEX     - [!]" + std::to_string(10000 - (lines - 1)) +
                                                        " trace messages were dropped: nobody took them\n"));
    zilTrace(100, "again");
    EXPECT_EQ(read_everything(), "again\n");
}

TEST_F(TraceOutput, FlagsOfStandardErrorStay) {
    const StandardError standard_error(ends[1]);
    for (size_t i = 0; i < 2000; i++)
        zilTrace(100, "%s", message(i).c_str());
    EXPECT_EQ(fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0) << "whoever started us shares them";
    read_everything();
}

TEST_F(TraceOutput, FullSocketHoldsNobodyUp) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    {
        const StandardError standard_error(pair[1]);
        for (size_t i = 0; i < 20000; i++)
            zilTrace(100, "%s", message(i).c_str());
        EXPECT_GT(bus::trace_output_retry(), 0u);
        EXPECT_EQ(fcntl(pair[1], F_GETFL) & O_NONBLOCK, 0);
        bus::trace_configure(); // what waits is not this test's
    }
    close(pair[0]);
    close(pair[1]);
}

TEST_F(TraceOutput, FullTableOfDescriptorsHoldsNobodyUp) {
    const StandardError standard_error(ends[1]);
    {
        const TableSize table(0);
        for (size_t i = 0; i < 2000; i++)
            zilTrace(100, "%s", message(i).c_str());
    }
    const std::string all = read_everything();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2000);
}

TEST_F(TraceOutput, ClosedStandardErrorIsNoError) {
    int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    close(STDERR_FILENO);
    zilTrace(100, "nobody");
    EXPECT_EQ(bus::trace_output_retry(), 0u) << "it will never be written";
    dup2(saved, STDERR_FILENO);
    close(saved);
}

TEST_F(TraceOutput, LoopWritesWhatHadToWait) {
    std::string all;
    kex_t *bus = kex_create("talker");
    {
        const StandardError standard_error(ends[1]);
        for (size_t i = 0; i < 2000; i++)
            zilTrace(100, "%s", message(i).c_str());
        kex_dispatch(bus);
        for (int i = 0; i < 200 && bus::trace_output_retry() != 0; i++) {
            pollfd ready = {kex_pollDescriptor(bus), POLLIN, 0};
            all += read_all();
            EXPECT_EQ(poll(&ready, 1, 5000), 1) << "the loop wakes for it";
            kex_dispatch(bus);
        }
        all += read_all();
    }
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2000);
    kex_destroy(bus);
}

TEST_F(TraceOutput, EndOfTheProcessWritesWhatHadToWait) {
    const pid_t process = fork();
    if (process == 0) {
        dup2(ends[1], STDERR_FILENO);
        for (size_t i = 0; i < 1000; i++)
            zilTrace(100, "%s", message(i).c_str());
        bus::trace_output_end(10000000000); // as the program's end does, with more time
        _exit(0);
    }
    const std::string all = read_until_end(process);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 1000);
}

class SystemLog : public TraceOutput {
protected:
    SystemLog() {
        setenv("ZIL_TRACE_OUTPUT", "syslog", 1);
        bus::trace_configure();
        bus::trace_output_set_system_log(path.c_str());
    }
    ~SystemLog() override {
        if (log >= 0)
            close(log);
        bus::trace_output_set_system_log(bus::kSystemLog);
    }
    void listen() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        ASSERT_EQ(bind(log, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    std::string next() const {
        char text[2048];
        const ssize_t length = recv(log, text, sizeof text, 0);
        return length > 0 ? std::string(text, static_cast<size_t>(length)) : "";
    }

    ScratchDirectory scratch;
    std::string path = scratch.path("log");
    int log = -1;
};

TEST_F(SystemLog, MessagesComeInItsForm) {
    listen();
    EXPECT_EQ(zilTrace(100, "text %d", 1), 1);
    EXPECT_THAT(next(), testing::MatchesRegex("<11>[A-Z][a-z]{2} [ 123][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} "
                                              "kex_trace_output_test: text 1"));
    zilTrace(200, "warning");
    EXPECT_EQ(next().substr(0, 4), "<12>");
}

TEST_F(SystemLog, ReaderThatIsSlowHoldsNobodyUp) {
    listen();
    for (size_t i = 0; i < 1000; i++)
        zilTrace(100, "%s", message(i).c_str());
    EXPECT_GT(bus::trace_output_retry(), 0u);
    size_t count = 0;
    while (bus::trace_output_retry() != 0 || count < 1000) {
        const std::string text = next();
        if (text.empty()) {
            ASSERT_NE(bus::trace_output_retry(), 0u) << "after " << count;
            bus::trace_catch_up();
            continue;
        }
        EXPECT_THAT(text, HasSubstr(message(count++)));
    }
    EXPECT_EQ(count, 1000u);
}

TEST_F(SystemLog, MessagesWaitForAReaderThatIsNotThereYet) {
    zilTrace(100, "early");
    EXPECT_GT(bus::trace_output_retry(), 0u);
    listen();
    bus::trace_catch_up();
    EXPECT_THAT(next(), HasSubstr("early"));
    EXPECT_EQ(bus::trace_output_retry(), 0u);
}

TEST_F(TraceOutput, TerminalIsWrittenTo) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal) + unlockpt(terminal), 0);
    const int line = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(line, 0);
    {
        const StandardError standard_error(line);
        zilTrace(100, "text");
    }
    char shown[64] = "";
    EXPECT_GT(read(terminal, shown, sizeof shown - 1), 0);
    EXPECT_STREQ(shown, "text\r\n");
    close(line);
    close(terminal);
}

TEST_F(TraceOutput, NullDeviceTakesEverything) {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const StandardError standard_error(null);
    for (size_t i = 0; i < 1000; i++)
        zilTrace(100, "%s", message(i).c_str());
    EXPECT_EQ(bus::trace_output_retry(), 0u);
    close(null);
}

// Somebody else's, who waits for it.
TEST_F(TraceOutput, SignalOfABrokenPipeThatWasThereBeforeStays) {
    sigset_t pipe_signal;
    sigset_t before;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
    raise(SIGPIPE);
    int broken[2];
    ASSERT_EQ(pipe2(broken, O_CLOEXEC), 0);
    {
        const StandardError standard_error(broken[1]);
        close(broken[1]);
        close(broken[0]);
        zilTrace(100, "nobody reads this");
    }
    const timespec at_once = {};
    EXPECT_EQ(sigtimedwait(&pipe_signal, nullptr, &at_once), SIGPIPE);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// A pipe cannot be opened once more then; it is written to as long as it has room.
TEST_F(TraceOutput, PipeWithRoomIsWrittenToWithoutADescriptorToSpare) {
    {
        const StandardError standard_error(ends[1]);
        const TableSize table(3);
        ASSERT_TRUE(table.made());
        zilTrace(100, "text");
    }
    EXPECT_EQ(read_all(), "text\n");
}

// What is kept is moved to the front when its end has come to that of the buffer.
TEST_F(TraceOutput, BufferIsUsedAgainBeforeItIsEmpty) {
    std::string all;
    size_t number = 0;
    {
        const StandardError standard_error(ends[1]);
        for (int round = 0; round < 6; round++) {
            while (number < static_cast<size_t>(2200 + round * 500))
                zilTrace(100, "%s", message(number++).c_str());
            all += read_all(); // a pipe's worth
            bus::trace_output_flush();
        }
        all += read_everything();
    }
    EXPECT_EQ(static_cast<size_t>(std::count(all.begin(), all.end(), '\n')), number);
    size_t at = 0;
    for (size_t i = 0; i < number; i++) {
        at = all.find(message(i), at);
        ASSERT_NE(at, std::string::npos) << i;
    }
}

TEST_F(TraceOutput, WhatComesFirstIsWaitedFor) {
    const StandardError standard_error(ends[1]);
    while (bus::trace_output_retry() == 0)
        zilTrace(100, "%s", message(0).c_str());
    EXPECT_EQ(bus::trace_deadline(1000), 1000 + 50 * 1000000u) << "until it is tried again";
    {
        const bus::TraceCause cause(1234);
        for (int i = 0; i < 11; i++)
            zilTrace(100, "complaint");
    }
    const uint64_t due = bus::trace_limit_due();
    ASSERT_GT(due, 0u);
    EXPECT_EQ(bus::trace_deadline(due - 1000), due) << "the count of what was too much";
    EXPECT_EQ(bus::trace_deadline(due - 1000000000), due - 1000000000 + 50 * 1000000u);
}

TEST_F(TraceOutput, EndOfAProgramWritesWhatHadToWait) {
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t process = fork();
    if (process == 0) {
        dup2(ends[1], STDERR_FILENO);
        for (size_t i = 0; i < 1000; i++)
            zilTrace(100, "%s", message(i).c_str());
        if (write(ready[1], "r", 1) != 1)
            _exit(1);
        bus::trace_output_end(10000000000); // the program's end has less time
        for (size_t i = 0; bus::trace_output_retry() == 0; i++)
            zilTrace(100, "%s", message(i).c_str());
        exit(0);
    }
    char byte;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    usleep(20000); // it waits for room
    const std::string all = read_until_end(process);
    EXPECT_GE(std::count(all.begin(), all.end(), '\n'), 1000);
    EXPECT_EQ(all.back(), '\n') << "nothing is cut off";
    for (int fd : ready)
        close(fd);
}

TEST_F(SystemLog, WhatIsDroppedIsCountedThereToo) {
    listen();
    for (size_t i = 0; i < 5000; i++)
        zilTrace(100, "%s", message(i).c_str());
    bool told = false;
    for (int i = 0; i < 10000 && !told; i++) {
        const std::string text = next();
        told = text.find("<12>KEX     - [!]") == 0 && text.find(" trace messages were dropped: nobody took them") > 0;
        if (text.empty())
            bus::trace_catch_up();
    }
    EXPECT_TRUE(told);
}

TEST_F(SystemLog, EachLevelHasItsPriority) {
    setenv("ZIL_TRACE_LEVEL", "500", 1);
    bus::trace_configure();
    bus::trace_output_set_system_log(path.c_str());
    unsetenv("ZIL_TRACE_LEVEL");
    listen();
    for (const auto &[level, priority] : {std::pair{100, "<11>"}, std::pair{200, "<12>"}, std::pair{300, "<13>"},
                                          std::pair{400, "<14>"}, std::pair{500, "<15>"}}) {
        zilTrace(level, "text");
        EXPECT_EQ(next().substr(0, 4), priority) << level;
    }
}

TEST_F(SystemLog, EndOfTheProcessDoesNotWaitForAReaderThatIsNotThere) {
    zilTrace(100, "early");
    const auto begin = std::chrono::steady_clock::now();
    bus::trace_output_end(10000000000);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_GT(bus::trace_output_retry(), 0u);
}

TEST_F(TraceOutput, EndOfTheProcessHasItsTime) {
    const StandardError standard_error(ends[1]);
    for (size_t i = 0; i < 1000; i++)
        zilTrace(100, "%s", message(i).c_str());
    bus::trace_output_end(1000000);
    EXPECT_GT(bus::trace_output_retry(), 0u) << "nobody has read";
}

TEST_F(TraceOutput, ChildWritesWhatItSaysItself) {
    std::string all;
    {
        const StandardError standard_error(ends[1]);
        for (size_t i = 0; i < 1000; i++)
            zilTrace(100, "%s", message(i).c_str());
        ASSERT_GT(bus::trace_output_retry(), 0u);
        all = read_all();
        const pid_t child = fork();
        if (child == 0) {
            zilTrace(100, "of the child");
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        EXPECT_EQ(read_all(), "of the child\n");
        all += read_everything();
    }
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 1000) << "nothing of the parent's is lost";
}

// It has a copy of what its parent keeps, which is the parent's to write.
TEST_F(TraceOutput, EndOfAChildWritesNothingOfItsParents) {
    std::string all;
    {
        const StandardError standard_error(ends[1]);
        for (size_t i = 0; i < 1000; i++)
            zilTrace(100, "%s", message(i).c_str());
        ASSERT_GT(bus::trace_output_retry(), 0u);
        all = read_all();
        const pid_t child = fork();
        if (child == 0)
            exit(0);
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(read_all(), "");
        all += read_everything();
    }
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 1000);
}

} // namespace
