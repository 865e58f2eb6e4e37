// Media that would hang or swallow memory are refused before anything is decoded, with the reason.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <fstream>

#include "../platform/temp_dir.h"
#include "engine/source_picture.h"
#include "media/frame_reader.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {
std::uint32_t crc32(const std::string& bytes) {
  std::uint32_t c = 0xFFFFFFFFu;
  for (unsigned char b : bytes) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
  }
  return ~c;
}
std::string be32(std::uint32_t v) {
  return {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}
// A PNG of a few dozen bytes whose header claims `w` x `h` grey pixels, with no picture data.
void writePngBomb(const fs::path& path, std::uint32_t w, std::uint32_t h) {
  const std::string ihdr = "IHDR" + be32(w) + be32(h) + std::string("\x08\x00\x00\x00\x00", 5);
  const std::string idat = "IDAT" + std::string("\x78\x9c\x03\x00", 4);  // a zlib stream that ends at once
  std::ofstream(path, std::ios::binary) << "\x89PNG\r\n\x1a\n" << be32(13) << ihdr << be32(crc32(ihdr)) << be32(4) << idat
                                        << be32(crc32(idat)) << be32(0) << "IEND" << be32(crc32("IEND"));
}
}  // namespace

TEST(HostileMedia, PipesDevicesAndSizeBombsAreRefusedWithTheirReason) {
  TempDir dir;
  const fs::path pipe = dir.path / "tube.png";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  writePngBomb(dir.path / "bombe.png", 16384, 16384);
  struct Case {
    fs::path path;
    const char* says;
  };
  const Case cases[] = {{pipe, "ce n'est pas un fichier ordinaire"},
                        {"/dev/zero", "ce n'est pas un fichier ordinaire"},
                        {dir.path, "ce n'est pas un fichier ordinaire"},
                        {dir.path / "bombe.png", "image trop grande : 16384 × 16384"}};
  for (const Case& c : cases) {
    std::string error;
    EXPECT_FALSE(SourcePicture::load(c.path, &error)) << c.path;
    EXPECT_NE(error.find(c.says), std::string::npos) << error;
  }
  std::string error;
  EXPECT_FALSE(FrameReader::open(pipe, &error));  // would block in the demuxer
  EXPECT_NE(error.find("Pas un fichier ordinaire"), std::string::npos) << error;
}
