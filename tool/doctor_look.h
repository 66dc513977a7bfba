// SPDX-License-Identifier: MIT
// Finding the facts out. Nothing here changes anything, or says what is right.
#ifndef VOICECTL_DOCTOR_LOOK_H
#define VOICECTL_DOCTOR_LOOK_H

#include <string>

#include "doctor_facts.h"
#include "run_limit.h"

namespace voicectl {

// The address by option or environment, and what stands there; connects to nothing. doctor_place.cpp
PlaceFacts place_look(const std::string &socket);

// As much of a file as can be read: of a folder, and of a process that ends meanwhile, nothing. doctor_process.cpp
std::string file_read(const std::string &path);
// A process as far as it may be looked at: of one of another user only its state. doctor_process.cpp
ProcessFacts process_look(int32_t id, const std::string &name, const std::string &proc = "/proc");

// Connects a tap, which says whether that is possible (place.error), and watches until the end of the run.
// doctor_bus.cpp
BusFacts bus_look(PlaceFacts &place, RunLimit &limit);
// Asks the application at its control socket. doctor_tables.cpp
TableFacts tables_look(const std::string &control);
// The lines that it answered with.
TableFacts tables_read(const std::string &lines);

// doctor_machine.cpp
MachineFacts machine_look();
// The stamp of the vocabulary in the text of a dissector.
std::optional<uint32_t> dissector_stamp(const std::string &text);

} // namespace voicectl

#endif
