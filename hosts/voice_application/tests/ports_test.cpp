// SPDX-License-Identifier: MIT
// The search for two neighbouring ports of a call's media.
#include "local_sockets.h"
#include "media_fixture.h"

#include <cstring>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using fake::bus;
using testing::Contains;

namespace application_test {
namespace {

// A UDP socket on a port of our address, as another process may have one.
class Occupied {
public:
    explicit Occupied(uint16_t port) : socket_(voice_test::bound_socket(port)) { EXPECT_GE(socket_, 0) << port; }
    ~Occupied() { close(socket_); }
    Occupied(const Occupied &) = delete;
    Occupied &operator=(const Occupied &) = delete;

private:
    int socket_;
};

class Ports : public Media {
protected:
    uint16_t first() const { return the_plan.first_port; }
    // A range of `count` ports from the first one, which is even; looking begins there.
    void use(uint16_t count) { the_plan.last_port = static_cast<uint16_t>(first() + count - 1); }
    // The next ports as distances from the first; 0 ports are "none".
    std::vector<int> take(int count) {
        std::vector<int> result;
        for (int i = 0; i < count; i++) {
            const uint16_t port = media_take_ports();
            result.push_back(port == 0 ? -1 : port - first());
        }
        return result;
    }
    // Where looking begins depends on what this process did before: bring it to the first port.
    void rewind() {
        const uint16_t last = the_plan.last_port;
        while (take(1)[0] != 0)
            ASSERT_EQ(last, the_plan.last_port);
    }
};

TEST_F(Ports, AreEvenAndMoveOn) {
    use(8);
    rewind();
    EXPECT_THAT(take(4), testing::ElementsAre(2, 4, 6, 0));
}

TEST_F(Ports, BeginAtTheFirstEvenOneOfTheRange) {
    the_plan.first_port++;
    the_plan.last_port = static_cast<uint16_t>(first() + 6);
    EXPECT_THAT(take(6), testing::Each(testing::AnyOf(1, 3, 5)));
}

TEST_F(Ports, NeedANeighbourWithinTheRange) {
    use(5);
    rewind();
    EXPECT_THAT(take(3), testing::ElementsAre(2, 0, 2)) << "the fifth has none";
}

TEST_F(Ports, OfOthersArePassedOver) {
    use(8);
    rewind();
    const Occupied media(static_cast<uint16_t>(first() + 2)), control(static_cast<uint16_t>(first() + 5));
    EXPECT_THAT(take(3), testing::ElementsAre(6, 0, 6));
}

TEST_F(Ports, EndWhenAllAreTaken) {
    use(4);
    const Occupied one(first()), two(static_cast<uint16_t>(first() + 2));
    EXPECT_THAT(take(2), testing::ElementsAre(-1, -1));
}

TEST_F(Ports, AreLookedForAmong128PairsAndFurtherOnTheNextTime) {
    use(1000);
    std::vector<std::unique_ptr<Occupied>> others;
    int last = 0;
    for (int i = 0; i < 1000 && last != 998; i++) // the next one is the first of the range
        last = take(1)[0];
    ASSERT_EQ(last, 998);
    for (int i = 0; i < 128; i++)
        others.push_back(std::make_unique<Occupied>(static_cast<uint16_t>(first() + 2 * i)));
    EXPECT_EQ(take(1)[0], -1);
    EXPECT_STREQ(media_ports_missing(), "128 pairs of media ports in a row are taken");
    EXPECT_EQ(take(1)[0], 256) << "it goes on where it was";
}

// Not that ports are taken: no other port would do.
TEST_F(Ports, OfAnAddressOfAnotherMachineAreNotLookedFor) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    strcpy(the_plan.address, "192.0.2.1");
    talk(from, to);
    EXPECT_THAT(app().said(),
                Contains(std::string("call N 101->102 ended: no media at 192.0.2.1: ") + strerror(EADDRNOTAVAIL)));
}

TEST_F(Ports, AreNotSaidToBeTakenWhenNoDescriptorIsLeft) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    app().event(from, LIBVOICE_EVENT_al_of);
    app().dial(from, "102");
    app().said();
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    app().event(to, LIBVOICE_EVENT_al_of);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_THAT(app().said(), Contains(std::string("call N 101->102 ended: no media at ") + the_plan.address + ": " +
                                       strerror(EMFILE)));
    app().event(from, LIBVOICE_EVENT_al_on);
    app().event(to, LIBVOICE_EVENT_al_on);
    talk(from, to);
    EXPECT_EQ(app().state(to), "talking") << "there is one again";
}

TEST_F(Ports, OfACallAreNotGivenOutAgain) {
    libvoice_set_convert_media(1); // nobody here has the sockets open
    use(8);
    const int32_t from = telephone("T1"), to = telephone("T2");
    talk(from, to);
    const call *made = line_of_endpoint(from)->calls[0];
    EXPECT_NE(made->from.port, made->to.port);
    for (const int port : take(4)) {
        EXPECT_NE(port, made->from.port - first());
        EXPECT_NE(port, made->to.port - first());
    }
}

TEST_F(Ports, WithoutAnyACallEnds) {
    const int32_t from = telephone("T1"), to = telephone("T2");
    use(4);
    const Occupied one(first()), two(static_cast<uint16_t>(first() + 2));
    app().sent();
    talk(from, to);
    EXPECT_THAT(app().said(), Contains("call N 101->102 ended: no media ports left"));
    EXPECT_EQ(app().sent(), "T1: cg_dt, silence, cg_rt, silence, cg_bt | T2: al_ri, silence, cg_bt");
    EXPECT_EQ(app().state(from), "busy");
}

} // namespace
} // namespace application_test
