#include "graph/uuid.h"

#include <QUuid>
#include <cstring>

namespace ombrik {

Uuid Uuid::generate() {
  const QByteArray raw = QUuid::createUuid().toRfc4122();
  Uuid id;
  std::memcpy(id.bytes_.data(), raw.constData(), 16);
  return id;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() == 38 && text.front() == '{' && text.back() == '}') text = text.substr(1, 36);
  if (text.size() != 36) return std::nullopt;
  Uuid id;
  int nibble = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') return std::nullopt;
      continue;
    }
    int v;
    if (c >= '0' && c <= '9') v = c - '0';
    else if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
    else return std::nullopt;
    id.bytes_[nibble / 2] = static_cast<std::uint8_t>(id.bytes_[nibble / 2] | (nibble % 2 ? v : v << 4));
    ++nibble;
  }
  return id;
}

std::string Uuid::toString() const {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(36);
  for (std::size_t i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    out.push_back(kHex[bytes_[i] >> 4]);
    out.push_back(kHex[bytes_[i] & 0xF]);
  }
  return out;
}

bool Uuid::isNil() const {
  for (auto b : bytes_)
    if (b) return false;
  return true;
}

}  // namespace ombrik

std::size_t std::hash<ombrik::Uuid>::operator()(const ombrik::Uuid& id) const noexcept {
  std::uint64_t a, b;
  std::memcpy(&a, id.bytes().data(), 8);
  std::memcpy(&b, id.bytes().data() + 8, 8);
  return static_cast<std::size_t>(a ^ (b * 0x9E3779B97F4A7C15ull));
}
