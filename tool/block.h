// SPDX-License-Identifier: MIT
// The subcommand "block": data blocks of caller display, read and written.
#ifndef VOICECTL_BLOCK_H
#define VOICECTL_BLOCK_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "caller_display.h"

namespace CLI {
class App;
}

namespace voicectl {

// Between processes a block ends in the plain sum of its bytes, on a line in the two's complement of that sum (ETSI EN
// 300 659-3).
enum class Checksum { sum, complement, wrong };

// A data block, both ways.
struct Block {
    CallerDisplay display{};
    std::string hex{};      // as it crosses the bus, upper case, with the plain sum
    std::string line_hex{}; // the same as it goes over a line
    Checksum carried = Checksum::sum;
    std::string problem{}; // why it is none, as a sentence; the rest then means nothing
};

// Reads a block with either checksum from hexadecimal digits of either case, blanks between them left out.
Block block_read(std::string_view digits);

// Writes the block of what a display is to show.
Block block_write(const CallerDisplay &display);

// Some lines for people; one JSON object for programs. Without line breaks at their ends.
std::string block_text(const Block &block);
std::string block_json(const Block &block);

// Adds the subcommand, as watch_add() does.
void block_add(CLI::App &app, std::function<int()> &run);

} // namespace voicectl

#endif
