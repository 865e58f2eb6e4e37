// The size of a first model download, from the partial blobs of the Hugging Face cache.
#include <gtest/gtest.h>

#include "../platform/temp_dir.h"
#include "ai/hf_downloads.h"

using namespace ombrik;
namespace fs = std::filesystem;

TEST(HfDownloads, FreshPartialBlobsOfModelsOnly) {
  TempDir home;
  const fs::path hub = home.path / ".cache" / "huggingface" / "hub";
  const auto now = fs::file_time_type::clock::now();
  EXPECT_EQ(hfDownloadedMB(home.path, now), std::nullopt);

  auto blob = [&](const fs::path& file, std::uintmax_t size, std::chrono::seconds age) {
    fs::create_directories(file.parent_path());
    std::ofstream{file};
    fs::resize_file(file, size);
    fs::last_write_time(file, now - age);
  };
  blob(hub / "models--a--x" / "blobs" / "1.incomplete", 5000000, std::chrono::seconds(30));
  EXPECT_EQ(hfDownloadedMB(home.path, now), std::nullopt);  // stalled: 30 s old

  blob(hub / "models--a--x" / "blobs" / "2.incomplete", 800000, std::chrono::seconds(1));
  blob(hub / "models--b--y" / "blobs" / "3.incomplete", 800000, std::chrono::seconds(29));
  blob(hub / "models--b--y" / "blobs" / "4", 5000000, std::chrono::seconds(0));                  // finished
  blob(hub / "datasets--c--z" / "blobs" / "5.incomplete", 5000000, std::chrono::seconds(0));     // no model
  EXPECT_EQ(hfDownloadedMB(home.path, now), 1);
}
