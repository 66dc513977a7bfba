// SPDX-License-Identifier: MIT
#include "world.h"

#include <poll.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include "../support/program.h"

namespace {

constexpr int kPatience = 20000; // ms, for whatever a world is asked for

Notes *notes_create() {
    void *memory = mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        die("mmap");
    return static_cast<Notes *>(memory);
}

std::string path_create() {
    static int worlds;
    return socket_path("world" + std::to_string(++worlds));
}

double processor_time_of(pid_t process) {
    clockid_t clock;
    timespec t = {};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &t) != 0)
        die("clock_getcpuclockid");
    return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

std::string counted(int count, const char *what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

World::Pipe World::pipe_open() {
    int ends[2];
    if (pipe(ends) != 0)
        die("pipe");
    return {ends[0], ends[1]};
}

World::World(int plugins, int endpoints, bool on_two_cpus)
    : plugins_(plugins), endpoints_(endpoints), on_two_cpus_(on_two_cpus), path_(path_create()), orders_(pipe_open()),
      words_(pipe_open()), notes_(notes_create()) {
    application_start();
    while (access(path_.c_str(), F_OK) != 0)
        usleep(100); // else each plugin makes its second attempt much later
    for (int i = 0; i < plugins_; ++i) {
        const Place place = {path_, notes_, endpoints_ / plugins_, i, -1, -1};
        others_.push_back(child_start([&] { plugin_serve(place); }, on_two_cpus_));
    }
    wait_for_word();
}

World::~World() {
    for (const pid_t other : others_)
        child_kill(other);
    child_kill(application_);
    for (const int fd : {orders_.from, orders_.to, words_.from, words_.to})
        close(fd);
    munmap(notes_, sizeof(Notes));
}

void World::application_start() {
    const Place place = {path_, notes_, endpoints_, 0, orders_.from, words_.to};
    application_ = child_start([&] { application_serve(place); }, false);
}

void World::wait_for_word() {
    char byte;
    pollfd words = {words_.from, POLLIN, 0};
    if (poll(&words, 1, kPatience) <= 0 || read(words_.from, &byte, 1) != 1)
        die("a world does not answer");
}

void World::carry_out(const Order &order) {
    if (write(orders_.to, &order, sizeof order) != sizeof order)
        die("write");
    wait_for_word();
}

void World::restart_application() {
    child_kill(application_);
    application_start();
    wait_for_word();
}

void World::watcher_attach(void (*serve)(const std::string &socket, int words)) {
    others_.push_back(child_start([&] { serve(path_, words_.to); }, true));
    wait_for_word();
}

double World::processor_time() const {
    double sum = processor_time_of(application_);
    for (const pid_t other : others_)
        sum += processor_time_of(other);
    return sum;
}

std::string World::name() const {
    return counted(plugins_, "plugin") + ", " + counted(endpoints_, "endpoint");
}
