// SPDX-License-Identifier: MIT
// Which steps of the traffic are shown.
#ifndef VOICECTL_FILTER_H
#define VOICECTL_FILTER_H

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "traffic.h"

namespace voicectl {

// Every list that is not empty must have a member that fits. A reply passes when its call did.
struct Filter {
    enum class Direction { both, in, out }; // in: towards the listener

    std::vector<std::string> endpoints{}; // "FXS1" or "fxs_a.FXS1"
    std::vector<std::string> plugins{};   // plugin or process names
    std::vector<std::string> functions{};
    std::vector<std::string> packages{}; // "al", "zil"
    Direction direction = Direction::both;

    bool passes(const Step &step) const;
};

// What is wrong with a package's name, as a sentence; empty: the vocabulary has it.
std::string package_problem(const std::string &package);

// Whether it is a function of the voice system. Other programs may bring their own.
bool is_known_function(std::string_view function);

// The names of a filter that nothing has come by yet: perhaps they are misspelt.
class Unseen {
public:
    explicit Unseen(const Filter &filter);

    // Takes what has come by, before any filter.
    void note(const Step &step);

    // Whether anything has come by at all. On a quiet system nothing is known of any name.
    bool something_came() const { return !seen_.empty(); }

    // One sentence for each name.
    std::vector<std::string> sentences() const;

private:
    std::vector<std::string> plugins_;
    std::vector<std::string> endpoints_;
    std::set<std::string> seen_; // plugins, or processes without a name yet
};

} // namespace voicectl

#endif
