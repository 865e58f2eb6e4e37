#pragma once
// 128-bit identifier of nodes, edges, worlds, media items and the like.
// Written everywhere (files, keys, folder names) as upper-case text without braces.
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ombrik {

class Uuid {
public:
  Uuid() = default;  // the nil identifier
  static Uuid generate();
  // Accepts upper or lower case, with or without braces; nullopt on anything else.
  static std::optional<Uuid> parse(std::string_view text);

  std::string toString() const;  // "8-4-4-4-12", upper case
  bool isNil() const;
  const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

  auto operator<=>(const Uuid&) const = default;
  bool operator==(const Uuid&) const = default;

private:
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace ombrik

template <>
struct std::hash<ombrik::Uuid> {
  std::size_t operator()(const ombrik::Uuid& id) const noexcept;
};
