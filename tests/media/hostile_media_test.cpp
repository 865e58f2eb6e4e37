// Media that would hang or swallow memory are refused before anything is decoded, with the reason.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>

#include "../platform/temp_dir.h"
#include "engine/half_float.h"
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
  EXPECT_NE(error.find("(ce n'est pas un fichier ordinaire)"), std::string::npos) << error;
}

// A checkerboard of 8192 x 4096 (the most pixels a still may have) decodes in a child process whose
// peak memory is measured: it arrives at the comp's 4096 side, every pixel the mean of its 2 x 2
// cell (0.5), and decoding never holds the full-size picture (about 1.3 GB as floats).
TEST(HostileMedia, LargeStillsArriveAtCompSizeWithMemoryOfThatSize) {
  TempDir dir;
  const fs::path file = dir.path / "damier.png";
  {
    const int w = 8192, h = 4096;
    auto out = OIIO::ImageOutput::create(file.string());
    ASSERT_TRUE(out && out->open(file.string(), OIIO::ImageSpec(w, h, 1, OIIO::TypeDesc::UINT8)));
    std::vector<std::uint8_t> line(w);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) line[x] = ((x ^ y) & 1) ? 255 : 0;
      ASSERT_TRUE(out->write_scanline(y, 0, OIIO::TypeDesc::UINT8, line.data()));
    }
    out->close();
  }
  long pages = 0, resident = 0;  // the child starts with what is resident here now
  std::ifstream("/proc/self/statm") >> pages >> resident;
  const double startMB = double(resident) * double(sysconf(_SC_PAGESIZE)) / (1 << 20);
  const pid_t child = fork();
  if (child == 0) {
    auto picture = SourcePicture::load(file);
    bool even = picture && picture->width == 4096 && picture->height == 2048;
    for (std::size_t i = 0; even && i < picture->rgba->size(); i += 4097)
      even = std::abs(halfToFloat((*picture->rgba)[i]) - ((i % 4 == 3) ? 1.f : 0.5f)) < 1e-3f;
    std::_Exit(even ? 0 : 1);
  }
  int status = 0;
  rusage usage{};
  ASSERT_EQ(wait4(child, &status, 0, &usage), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "size or values of the reduced picture";
  const double grownMB = double(usage.ru_maxrss) / 1024 - startMB;
  EXPECT_LT(grownMB, 300) << "peak memory of the decode";
}
