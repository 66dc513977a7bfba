// SPDX-License-Identifier: MIT
// The listing of a process's objects.
#include "listing.h"

#include <algorithm>

#include <fmt/format.h>

#include "json.h"
#include "libvoice_plugin.h"
#include "text.h"

namespace voicectl {

namespace {

// Takes the text in front of a separator off; what is left when there is none.
std::string_view part_take(std::string_view &text, char separator) {
    const size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

std::optional<ListedFunction> function_read(std::string_view text) {
    const size_t open = text.find('(');
    if (open == 0 || open == std::string_view::npos || !text.ends_with(")"))
        return std::nullopt;
    ListedFunction function{.name = std::string(text.substr(0, open))};
    for (std::string_view rest = text.substr(open + 1, text.size() - open - 2); !rest.empty();)
        function.arguments.emplace_back(part_take(rest, ','));
    return function;
}

std::string function_text(const ListedFunction &function) {
    return fmt::format("{}({})", function.name, fmt::join(function.arguments, ", "));
}

} // namespace

std::optional<ListedObject> listed_object_read(std::string_view entry) {
    ListedObject object;
    object.path = part_take(entry, ' ');
    object.kind = part_take(entry, ' ');
    object.class_name = part_take(entry, ' ');
    if (object.path.empty() || object.class_name.empty() ||
        (object.kind != "object" && object.kind != "template" && object.kind != "instance"))
        return std::nullopt;
    if (object.class_name == "-")
        object.class_name.clear();
    while (!entry.empty()) {
        const std::optional<ListedFunction> function = function_read(part_take(entry, ' '));
        if (!function)
            return std::nullopt;
        object.functions.push_back(*function);
    }
    return object;
}

std::vector<ListedFunction> contract_functions(std::string_view class_name) {
    std::vector<ListedFunction> functions;
    const char *const *rows = libvoice_bus_functions();
    for (int row = 0; row < LIBVOICE_BUS_FUNCTIONS; ++row) {
        const char *const *cells = rows + row * LIBVOICE_BUS_FUNCTION_COLUMNS;
        if (cells[0] != class_name)
            continue;
        ListedFunction function{.name = cells[1]};
        for (int i = 2; i < LIBVOICE_BUS_FUNCTION_COLUMNS && cells[i] != nullptr; ++i)
            function.arguments.emplace_back(cells[i]);
        functions.push_back(std::move(function));
    }
    return functions;
}

std::string listed_object_text(const ListedObject &object) {
    constexpr size_t kStep = 2, kDeepest = 16;
    constexpr size_t kClassAt = 36;
    const auto dots = static_cast<size_t>(std::count(object.path.begin(), object.path.end(), '.'));
    const std::string indent(kStep * std::min(dots, kDeepest), ' ');
    std::string line = indent + printable(object.path.substr(object.path.rfind('.') + 1));
    std::string what = object.kind == "object" ? std::string() : object.kind;
    if (!object.class_name.empty())
        what += fmt::format("{}class {}", what.empty() ? "" : ", ", printable(object.class_name));
    if (object.process != 0)
        what += fmt::format(", process {}", object.process);
    if (!what.empty())
        line += std::string(columns_of(line) < kClassAt ? kClassAt - columns_of(line) : kStep, ' ') + what;
    std::string text = line + "\n";
    for (const ListedFunction &function : object.functions)
        text += fmt::format("{}    {}\n", indent, printable(function_text(function)));
    return text;
}

std::string listed_object_json(const ListedObject &object) {
    JsonMembers functions;
    for (const ListedFunction &function : object.functions) {
        JsonMembers arguments;
        for (const std::string &argument : function.arguments)
            arguments.add(json_string(argument));
        JsonMembers members;
        members.add_text("name", function.name);
        members.add("arguments", arguments.list());
        functions.add(members.object());
    }
    JsonMembers members;
    members.add_text("path", object.path);
    members.add_text("kind", object.kind);
    members.add_text("class", object.class_name);
    if (object.process != 0)
        members.add_number("process", object.process);
    members.add("functions", functions.list());
    return members.object();
}

} // namespace voicectl
