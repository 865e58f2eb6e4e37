#pragma once
// JSON read from outside the program (a project, a world pack, the clipboard) is parsed with a
// bound on its nesting, checked on the text before any tree is built. nlohmann's parser keeps
// its own stack on the heap, but dump() and every walk of the tree recurse once a level: a file
// of a few hundred kilobytes of "[" would overflow the stack. Below the bound, a walk's
// recursion stays a few hundred frames deep.
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace ombrik {

inline constexpr int kMaxJsonDepth = 512;  // levels of arrays and objects, the outermost counted

// The tree, or nullopt with the reason in French: "JSON illisible", or the nesting bound.
std::optional<nlohmann::json> parseBoundedJson(const std::string& text, std::string* error = nullptr);

}  // namespace ombrik
