// ".cube" files (the Resolve/Adobe text form). Read leniently the way colourists' tools write
// them (comments, tabs, Windows or old Mac line ends, lower-case keywords, a fourth number on a
// line), but a table that doesn't add up is refused whole with its reason: a half-read LUT would
// show wrong colours without a word.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>

#include "color/lut_lib.h"
#include "media/media_files.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {

constexpr int kMax1DSize = 65536;
constexpr long long kMaxRows = std::max<long long>(
    static_cast<long long>(LUTLib::kMaxSize) * LUTLib::kMaxSize * LUTLib::kMaxSize, kMax1DSize);

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; }

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
  return s;
}

// Blank- or tab-separated tokens.
std::vector<std::string_view> tokens(std::string_view s) {
  std::vector<std::string_view> out;
  std::size_t i = 0;
  while (i < s.size()) {
    while (i < s.size() && isBlank(s[i])) ++i;
    const std::size_t start = i;
    while (i < s.size() && !isBlank(s[i])) ++i;
    if (i > start) out.push_back(s.substr(start, i - start));
  }
  return out;
}

// A keyword (or any word): an ASCII letter, or the lead byte of a multi-byte UTF-8 character.
bool startsWithLetter(std::string_view s) {
  const unsigned char c = static_cast<unsigned char>(s.front());
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c >= 0xC0;
}

bool startsWithKeyword(std::string_view line, std::string_view keyword) {
  if (line.size() < keyword.size()) return false;
  for (std::size_t i = 0; i < keyword.size(); ++i)
    if (std::toupper(static_cast<unsigned char>(line[i])) != keyword[i]) return false;
  return true;
}

// A whole token as a number, locale-independent; an exponent past a float's range gives infinity
// (or 0), as a float parser would.
std::optional<float> parseFloat(std::string_view t) {
  if (t.starts_with('+')) {
    t.remove_prefix(1);
    if (t.starts_with('-')) return std::nullopt;
  }
  double v = 0;
  const auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
  if (end != t.data() + t.size()) return std::nullopt;
  if (ec == std::errc::result_out_of_range) {
    const std::size_t e = t.find_first_of("eE");
    const bool tiny = e != std::string_view::npos && e + 1 < t.size() && t[e + 1] == '-';
    const bool negative = t.front() == '-';
    if (tiny) return negative ? -0.0f : 0.0f;
    return negative ? -std::numeric_limits<float>::infinity() : std::numeric_limits<float>::infinity();
  }
  if (ec != std::errc()) return std::nullopt;
  return static_cast<float>(v);
}

std::optional<long long> parseInteger(std::string_view t) {
  if (t.starts_with('+')) {
    t.remove_prefix(1);
    if (t.starts_with('-')) return std::nullopt;
  }
  long long v = 0;
  const auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
  if (ec != std::errc() || end != t.data() + t.size()) return std::nullopt;
  return v;
}

// The cube a per-channel curve makes: each channel read through its own column of the 1D table,
// linearly between entries, at the grid's values.
LutTable cubeFrom1D(const std::vector<float>& rows, int m) {
  const int n = LUTLib::kGenericSize;
  std::vector<std::array<float, 3>> curve(n);
  for (int i = 0; i < n; ++i) {
    const double p = double(i) / (n - 1) * (m - 1);
    const int k = std::min(int(p), m - 2);
    const float f = float(p - k);
    for (int c = 0; c < 3; ++c) curve[i][c] = rows[4 * k + c] * (1 - f) + rows[4 * (k + 1) + c] * f;
  }
  LutTable t;
  t.size = n;
  t.values.reserve(std::size_t(4) * n * n * n);
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r) t.values.insert(t.values.end(), {curve[r][0], curve[g][1], curve[b][2], 1.0f});
  return t;
}

struct CubeReading {
  std::optional<long long> size3, size1;
  std::vector<float> rows;  // r, g, b, 1 for each data line kept (at most kMaxRows)
  long long rowCount = 0;   // every data line, kept or not
  long long lineNumber = 0;
  std::string failure;

  // False once the file is certain to be refused.
  bool line(std::string_view raw) {
    ++lineNumber;
    std::string_view s = trimmed(raw);
    if (lineNumber == 1 && s.starts_with("\xEF\xBB\xBF")) s = trimmed(s.substr(3));  // a UTF-8 mark
    if (s.empty() || s.front() == '#') return true;
    for (auto [keyword, into] : {std::pair{"LUT_3D_SIZE", &size3}, std::pair{"LUT_1D_SIZE", &size1}}) {
      if (!startsWithKeyword(s, keyword)) continue;
      const auto t = tokens(s);
      *into = t.size() > 1 ? parseInteger(t[1]) : std::nullopt;
      if (!*into) {
        failure = std::string(keyword) + " sans taille lisible, ligne " + std::to_string(lineNumber);
        return false;
      }
      return true;
    }
    if (startsWithLetter(s)) return true;  // TITLE, DOMAIN_MIN/MAX (not honoured) and the like
    float v[3];
    int found = 0;
    for (std::string_view t : tokens(s)) {
      if (auto f = parseFloat(t)) v[found++] = *f;
      if (found == 3) break;  // a fourth number is no part of the entry
    }
    if (found < 3) return true;
    if (!std::isfinite(v[0]) || !std::isfinite(v[1]) || !std::isfinite(v[2])) {
      failure = "valeur non finie, ligne " + std::to_string(lineNumber);
      return false;
    }
    if (rowCount++ < kMaxRows) rows.insert(rows.end(), {v[0], v[1], v[2], 1.0f});
    return true;
  }

  std::optional<LutTable> table() {
    if (size3 && size1) return refuse("table 1D et table 3D dans un même fichier, non pris en charge");
    if (size1) {
      if (*size1 < 2 || *size1 > kMax1DSize)
        return refuse("taille 1D " + std::to_string(*size1) + " : de 2 à " + std::to_string(kMax1DSize));
      if (rowCount != *size1) return refuse(values() + " pour une table 1D de " + std::to_string(*size1));
      return cubeFrom1D(rows, int(*size1));
    }
    if (!size3) return refuse("taille absente (ligne LUT_3D_SIZE)");
    const long long n = *size3;
    if (n < 2) return refuse("taille " + std::to_string(n) + " : au moins 2");
    if (n > LUTLib::kMaxSize) return refuse("taille " + std::to_string(n) + " : au plus " + std::to_string(LUTLib::kMaxSize));
    if (rowCount != n * n * n)
      return refuse(values() + " pour une table de " + std::to_string(n) + "³ (" + std::to_string(n * n * n) +
                    " attendues)");
    LutTable t;
    t.size = int(n);
    t.values = std::move(rows);
    return t;
  }

  std::string values() const { return std::to_string(rowCount) + (rowCount > 1 ? " valeurs" : " valeur"); }

  std::optional<LutTable> refuse(std::string why) {
    failure = std::move(why);
    return std::nullopt;
  }
};

}  // namespace

std::optional<LutTable> LUTLib::parseCube(const fs::path& path, std::string* error) {
  const auto fail = [&](const std::string& why) -> std::optional<LutTable> {
    if (error) *error = "LUT illisible : " + path.filename().string() + " (" + why + ")";
    return std::nullopt;
  };
  if (auto why = unreadableFile(path)) return fail(*why);
  std::error_code ec;
  const std::uintmax_t bytes = fs::file_size(path, ec);
  if (ec) return fail(kNotFound);
  if (bytes > kMaxFileBytes)
    return fail("fichier de " + std::to_string(bytes >> 20) + " Mo, au plus " + std::to_string(kMaxFileBytes >> 20));
  std::ifstream in(path, std::ios::binary);
  if (!in) return fail("lecture refusée");

  // Read in blocks and split at either line end, so CR-only files and huge ones cost no more
  // than a line at a time beyond the table itself.
  CubeReading reading;
  std::string carry;
  std::vector<char> block(1 << 20);
  bool going = true;
  bool afterCR = false;  // a "\r\n" cut between two blocks is still one line end
  while (going && in) {
    in.read(block.data(), std::streamsize(block.size()));
    const std::string_view chunk(block.data(), std::size_t(in.gcount()));
    std::size_t from = afterCR && chunk.starts_with('\n') ? 1 : 0;
    afterCR = chunk.ends_with('\r');
    while (going) {
      const std::size_t end = chunk.find_first_of("\r\n", from);
      if (end == std::string_view::npos) {
        carry.append(chunk.substr(from));
        break;
      }
      if (carry.empty()) {
        going = reading.line(chunk.substr(from, end - from));
      } else {
        carry.append(chunk.substr(from, end - from));
        going = reading.line(carry);
        carry.clear();
      }
      // "\r\n" is one line end; a lone "\r" or "\n" another.
      from = end + 1;
      if (chunk[end] == '\r' && from < chunk.size() && chunk[from] == '\n') ++from;
    }
  }
  if (in.bad()) return fail("erreur de lecture");
  if (going && !carry.empty()) going = reading.line(carry);
  if (!going) return fail(reading.failure);
  auto table = reading.table();
  if (!table) return fail(reading.failure);
  return table;
}

}  // namespace ombrik
