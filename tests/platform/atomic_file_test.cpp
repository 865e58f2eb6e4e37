// Whole files or nothing, on a real disk and on a full one.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/atomic_file.h"
#include "temp_dir.h"

using namespace ombrik;
namespace fs = std::filesystem;


TEST(AtomicFile, ReplacesWholeKeepsLinksAndModesAndLeavesNoTemporary) {
  TempDir dir;
  const fs::path file = dir.path / "projet.tarvom", link = dir.path / "lien.tarvom";
  ASSERT_FALSE(writeFileAtomically(file, "un"));
  ::chmod(file.c_str(), 0640);
  fs::create_symlink(file, link);
  ASSERT_FALSE(writeFileAtomically(link, "deux"));
  EXPECT_TRUE(fs::is_symlink(link)) << "a symlinked project stays a link";
  EXPECT_EQ(slurp(file), "deux");
  struct stat st {};
  ASSERT_EQ(::stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u) << "the file keeps its permissions";
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path), fs::directory_iterator{}), 2) << "no temporary left";
  const auto missing = writeFileAtomically(dir.path / "absent" / "x.tarvom", "x");
  ASSERT_TRUE(missing);
}

TEST(AtomicFile, AFullDiskLeavesTheOldFileAndSaysSo) {
  TempDir dir;
  const fs::path disk = dir.path / "disque";
  fs::create_directories(disk);
  if (std::system(("mount -t tmpfs -o size=64k tmpfs '" + disk.string() + "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "no tmpfs can be mounted here";
  struct Unmount {
    fs::path at;
    ~Unmount() { (void)std::system(("umount '" + at.string() + "'").c_str()); }
  } unmount{disk};
  const fs::path file = disk / "projet.tarvom";
  ASSERT_FALSE(writeFileAtomically(file, std::string(20000, 'a')));
  const auto why = writeFileAtomically(file, std::string(60000, 'b'));
  ASSERT_TRUE(why);
  EXPECT_EQ(*why, "le disque est plein");
  EXPECT_EQ(slurp(file), std::string(20000, 'a'));
  EXPECT_EQ(std::distance(fs::directory_iterator(disk), fs::directory_iterator{}), 1) << "no temporary left";
}
