#include "platform/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <random>

namespace ombrik {

namespace fs = std::filesystem;

namespace {
std::string causeOf(int err) {
  switch (err) {
    case ENOSPC:
    case EDQUOT: return "le disque est plein";
    case EROFS: return "le disque est en lecture seule";
    case EACCES:
    case EPERM: return "écriture interdite";
    default: return std::strerror(err);
  }
}
}  // namespace

std::optional<std::string> writeFileAtomically(const fs::path& path, const std::string& bytes) {
  std::error_code ec;
  // A symlink keeps pointing where it did: what it names is replaced.
  fs::path target = path;
  if (fs::is_symlink(fs::symlink_status(path, ec))) {
    target = fs::weakly_canonical(path, ec);
    if (ec) return "lien illisible : " + ec.message();
  }
  const fs::path dir = target.parent_path().empty() ? fs::path(".") : target.parent_path();
  struct stat old {};
  const bool existed = ::stat(target.c_str(), &old) == 0;
  std::random_device random;
  std::string name = ".";  // appended piece by piece: GCC 12 warns falsely on one long sum
  name += target.filename().string();
  name += ".part-";
  name += std::to_string(::getpid());
  name += '-';
  name += std::to_string(random());
  const fs::path tmp = dir / name;
  const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, existed ? (old.st_mode & 07777) : 0666);
  if (fd < 0) return causeOf(errno);
  auto abandon = [&](int err) {
    ::close(fd);
    ::unlink(tmp.c_str());
    return causeOf(err);
  };
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return abandon(n < 0 ? errno : ENOSPC);
    done += std::size_t(n);
  }
  if (existed && ::fchmod(fd, old.st_mode & 07777) != 0) return abandon(errno);  // the umask may have narrowed it
  if (::fsync(fd) != 0) return abandon(errno);
  if (::close(fd) != 0) {
    const int err = errno;
    ::unlink(tmp.c_str());
    return causeOf(err);
  }
  if (::rename(tmp.c_str(), target.c_str()) != 0) {
    const int err = errno;
    ::unlink(tmp.c_str());
    return causeOf(err);
  }
  if (const int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dfd >= 0) {
    ::fsync(dfd);  // the rename itself reaches the disk
    ::close(dfd);
  }
  return std::nullopt;
}

}  // namespace ombrik
