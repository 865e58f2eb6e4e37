// Files the engine reads and writes: raw frames (".dn"), decoded stills, exported pictures.
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <unistd.h>

#include <fcntl.h>
#include <sys/statvfs.h>
#include <functional>
#include <cstdint>
#include "engine/engine.h"
#include "engine/engine_eval_state.h"
#include "engine/half_float.h"
#include "gpu/device.h"
#include "platform/system_memory.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {

void putU32(std::string& out, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(char((v >> (8 * i)) & 0xFF));
}

std::uint32_t getU32(const char* p) {
  std::uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v |= std::uint32_t(static_cast<unsigned char>(p[i])) << (8 * i);
  return v;
}

// Files are written beside their target and renamed over it: a failed write never leaves half a
// file. `written` says whether the temporary file is whole.
// Why a file couldn't be written in `dir`, as far as the system can tell.
std::string writeCause(const fs::path& dir) {
  const std::string d = dir.empty() ? "." : dir.string();
  struct statvfs st {};
  if (statvfs(d.c_str(), &st) == 0 && (st.f_flag & ST_RDONLY)) return "le disque est en lecture seule";
  if (::access(d.c_str(), W_OK) != 0) return "écriture interdite dans ce dossier";
  if (statvfs(d.c_str(), &st) == 0 && std::uint64_t(st.f_bavail) * st.f_frsize < 256 * 1024) return "le disque est plein";
  return "fichier incomplet";
}

// The temporary takes the final name only when it is whole: flushed to the disk, and for a picture
// read back entirely (some image writers report success on a full disk and leave an empty file).
bool publish(const fs::path& tmp, const fs::path& path, bool written, std::string* error,
             const std::function<bool()>& whole = nullptr) {
  std::error_code ec;
  if (written) {
    const int fd = ::open(tmp.c_str(), O_RDONLY);
    written = fd >= 0 && ::fsync(fd) == 0;
    if (fd >= 0) ::close(fd);
  }
  if (written && whole) written = whole();
  if (written) fs::rename(tmp, path, ec);
  if (!written || ec) {
    fs::remove(tmp, ec);
    if (error) *error = "Écriture impossible : " + path.filename().string() + " (" + writeCause(path.parent_path()) + ")";
    return false;
  }
  return true;
}

bool writeAtomically(const fs::path& path, const std::string& bytes, std::string* error) {
  const fs::path tmp = path.string() + ".part";
  bool written;
  {
    std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
    out.flush();
    written = bool(out);
  }
  return publish(tmp, path, written, error);
}

}  // namespace

std::vector<float> Engine::readPixels(const Tex& texture) {
  std::vector<float> out;
  if (!texture) return out;
  const auto bytes = device_->read(texture);
  if (bytes.size() != texture->byteSize()) return out;
  const std::size_t n = std::size_t(texture->width()) * texture->height() * texture->depth() * 4;
  out.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    if (texture->format() == gpu::Format::rgba16Float) {
      std::uint16_t h;
      std::memcpy(&h, bytes.data() + i * 2, 2);
      out[i] = halfToFloat(h);
    } else {
      out[i] = bytes[i] / 255.0f;
    }
  }
  return out;
}

bool Engine::writeRaw(const Tex& texture, const fs::path& path, std::string* error) {
  if (!texture || texture->format() != gpu::Format::rgba16Float || texture->is3D()) {
    if (error) *error = "Texture non copiable";
    return false;
  }
  const auto pixels = device_->read(texture);
  if (pixels.size() != texture->byteSize()) {
    if (error) *error = "Texture non copiable";
    return false;
  }
  std::string bytes;
  bytes.reserve(8 + pixels.size());
  putU32(bytes, std::uint32_t(texture->width()));
  putU32(bytes, std::uint32_t(texture->height()));
  bytes.append(reinterpret_cast<const char*>(pixels.data()), pixels.size());
  return writeAtomically(path, bytes, error);
}

Engine::Tex Engine::rawNoise(const fs::path& path, bool cap) {
  const std::string key = path.string() + (cap ? "|c" : "|f");
  {
    std::lock_guard g(rawLock_);
    if (auto it = rawCache_.find(key); it != rawCache_.end()) {
      rawOrder_.erase(std::find(rawOrder_.begin(), rawOrder_.end(), key));
      rawOrder_.push_back(key);
      return it->second;
    }
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) return nullptr;
  char header[8];
  if (!in.read(header, 8)) return nullptr;
  const std::uint32_t w = getU32(header), h = getU32(header + 4);
  if (w == 0 || h == 0 || w > 65536 || h > 65536) return nullptr;
  const std::size_t size = std::size_t(w) * h * 8;
  std::vector<char> pixels(size);
  if (!in.read(pixels.data(), std::streamsize(size))) return nullptr;  // a short file gives nothing

  auto commands = device_->begin();
  if (!commands) return nullptr;
  Tex t = device_->createTexture(int(w), int(h), gpu::Format::rgba16Float);
  if (!t) return nullptr;
  commands->upload(t, pixels.data(), size);
  if (cap && std::max(w, h) > 2048) {
    // The longer side to 2048, the shorter never under 16.
    const int cw = w >= h ? 2048 : std::max(16, int(std::uint64_t(w) * 2048 / h));
    const int ch = w >= h ? std::max(16, int(std::uint64_t(h) * 2048 / w)) : 2048;
    Tex scaled = device_->createTexture(cw, ch, gpu::Format::rgba16Float);
    if (!scaled) return nullptr;
    const Tex list[] = {t, scaled};
    commands->dispatch("k_resample", list, {});
    t = scaled;
  }
  if (!device_->submitAndWait(*commands)) return nullptr;

  std::lock_guard g(rawLock_);
  rawCache_[key] = t;
  rawOrder_.push_back(key);
  rawBytes_ += std::size_t(t->width()) * t->height() * 8;
  const std::size_t budget = std::min(physicalMemoryBytes() / 6, std::size_t(24) << 30);
  while (rawBytes_ > budget && !rawOrder_.empty() && rawOrder_.front() != key) {
    const Tex& old = rawCache_[rawOrder_.front()];
    if (old) rawBytes_ -= std::size_t(old->width()) * old->height() * 8;
    rawCache_.erase(rawOrder_.front());
    rawOrder_.erase(rawOrder_.begin());
  }
  return t;
}

Engine::Tex Engine::cachedImage(const fs::path& path, int width, int height) {
  if (width < 1 || height < 1) return nullptr;
  const std::string prefix = path.string() + "|";
  const std::string key = prefix + std::to_string(width) + "x" + std::to_string(height);
  std::error_code ec;
  auto date = fs::last_write_time(path, ec);
  if (ec) date = fs::file_time_type::min();
  if (auto it = imageCache_.find(key); it != imageCache_.end() && it->second.date == date) {
    if (imageOrder_.back() != key) {
      imageOrder_.erase(std::find(imageOrder_.begin(), imageOrder_.end(), key));
      imageOrder_.push_back(key);
    }
    return it->second.texture;
  }
  auto picture = SourcePicture::load(path);
  if (!picture) return nullptr;
  auto commands = device_->begin();
  if (!commands) return nullptr;
  Tex src = device_->createTexture(picture->width, picture->height, gpu::Format::rgba16Float);
  Tex out = device_->createTexture(width, height, gpu::Format::rgba16Float);
  if (!src || !out) return nullptr;
  commands->upload(src, picture->rgba->data(), picture->rgba->size() * 2);
  const Tex list[] = {src, out};
  commands->dispatch("k_resample", list, {});  // stretched to exactly the size asked
  if (!device_->submitAndWait(*commands)) return nullptr;

  // One size per file in memory.
  for (auto it = imageOrder_.begin(); it != imageOrder_.end();) {
    if (it->compare(0, prefix.size(), prefix) == 0) {
      const Tex& old = imageCache_[*it].texture;
      if (old) imageBytes_ -= std::size_t(old->width()) * old->height() * 8;
      imageCache_.erase(*it);
      it = imageOrder_.erase(it);
    } else {
      ++it;
    }
  }
  imageCache_[key] = {date, out};
  imageOrder_.push_back(key);
  imageBytes_ += std::size_t(width) * height * 8;
  const std::size_t budget = std::min(physicalMemoryBytes() / 16, std::size_t(6442450944ull));
  while (imageOrder_.size() >= 2 && imageBytes_ > budget) {
    const Tex& old = imageCache_[imageOrder_.front()].texture;
    if (old) imageBytes_ -= std::size_t(old->width()) * old->height() * 8;
    imageCache_.erase(imageOrder_.front());
    imageOrder_.erase(imageOrder_.begin());
  }
  return out;
}

void Engine::purgeImageCache() {
  imageCache_.clear();
  imageOrder_.clear();
  imageBytes_ = 0;
  {
    std::lock_guard g(poolLock_);
    pool_.clear();
  }
  std::lock_guard g(rawLock_);
  rawCache_.clear();
  rawOrder_.clear();
  rawBytes_ = 0;
}

void Engine::purgeRaw(const std::string& prefix) {
  std::lock_guard g(rawLock_);
  for (auto it = rawOrder_.begin(); it != rawOrder_.end();) {
    if (it->compare(0, prefix.size(), prefix) != 0) {
      ++it;
      continue;
    }
    if (auto entry = rawCache_.find(*it); entry != rawCache_.end()) {
      if (const Tex& t = entry->second) rawBytes_ -= std::size_t(t->width()) * t->height() * 8;
      rawCache_.erase(entry);
    }
    it = rawOrder_.erase(it);
  }
}

bool Engine::export_(const Tex& texture, const fs::path& path, std::string* error) {
  const std::vector<float> pixels = readPixels(texture);
  if (pixels.empty() || texture->is3D()) {
    if (error) *error = "Texture illisible";
    return false;
  }
  std::string ext = path.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  // PNG 8 bits, EXR half float, anything else TIFF 16 bits; sRGB values as stored.
  const OIIO::TypeDesc type = ext == ".png" ? OIIO::TypeDesc::UINT8 : ext == ".exr" ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::UINT16;
  const fs::path tmp = path.parent_path() / (".part-" + path.filename().string());
  auto out = OIIO::ImageOutput::create(ext == ".png" ? "png" : ext == ".exr" ? "openexr" : "tiff");
  if (!out) {
    if (error) *error = "Format d'image indisponible";
    return false;
  }
  OIIO::ImageSpec spec(texture->width(), texture->height(), 4, type);
  spec.attribute("oiio:UnassociatedAlpha", 1);  // write the values as they are, no division by alpha
  // The working values are sRGB-encoded; an EXR carries them unconverted too.
  spec.attribute("oiio:ColorSpace", "sRGB");
  spec.attribute(kEncodingAttribute, "sRGB");
  const bool written = out->open(tmp.string(), spec) && out->write_image(OIIO::TypeDesc::FLOAT, pixels.data()) && out->close();
  const int w = texture->width(), h = texture->height();
  return publish(tmp, path, written, error, [&] {
    auto in = OIIO::ImageInput::open(tmp.string());
    if (!in || in->spec().width != w || in->spec().height != h) return false;
    std::vector<float> back(std::size_t(w) * h * in->spec().nchannels);
    return in->read_image(0, 0, 0, in->spec().nchannels, OIIO::TypeDesc::FLOAT, back.data()) && in->close();
  });
}

}  // namespace ombrik
