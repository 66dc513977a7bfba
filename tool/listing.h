// SPDX-License-Identifier: MIT
// The listing of a process's objects, as the bus's built-in call answers it.
#ifndef VOICECTL_LISTING_H
#define VOICECTL_LISTING_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace voicectl {

struct ListedFunction {
    std::string name;
    std::vector<std::string> arguments{}; // one with a second name as "a|b"
};

// All texts are as they came.
struct ListedObject {
    std::string path{};
    std::string kind{};       // "object", "template", "instance"; "plugin" and "endpoint" of those that a plugin has
    std::string class_name{}; // empty: none
    std::vector<ListedFunction> functions{};
    int32_t process = 0; // of a plugin
};

// Reads one entry: path, kind, class or "-", functions. Empty: it is none.
std::optional<ListedObject> listed_object_read(std::string_view entry);

// The functions of a class as the contract has them.
std::vector<ListedFunction> contract_functions(std::string_view class_name);

// A line for the object, one for each of its functions; indented by its place in the tree.
std::string listed_object_text(const ListedObject &object);
// One JSON object without a line break.
std::string listed_object_json(const ListedObject &object);

} // namespace voicectl

#endif
