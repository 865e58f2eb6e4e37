#include "engine/engine.h"

#include <algorithm>
#include <cmath>

#include "engine/engine_eval_state.h"
#include "engine/kernel_library.h"
#include "engine/pass_fusion.h"
#include "gpu/device.h"
#include "platform/app_paths.h"

namespace ombrik {

Engine::~Engine() {
  // The clip queue ends first: a frame being read ahead still needs its reader.
  clipReading_.reset();
  // Every texture goes before the device that made it.
  ev_.reset();
  outputs.clear();
  muxAlpha.clear();
  compAlpha.clear();
  viewAlpha.reset();
  mergedSide.clear();
  alphaSide_.clear();
  maskSide_.clear();
  mediaTex_.clear();
  sourceTex_.clear();
  spareSourceTex_.clear();
  fitSource_.reset();
  for (auto& t : planeTex_) t.reset();
  planarRGB_.reset();
  pool_.clear();
  imageCache_.clear();
  rawCache_.clear();
  vfCache_.clear();
}

Engine::Options Engine::defaultOptions() {
  const AppPaths& paths = AppPaths::shared();
  Options o;
  o.shaderCache = paths.support / "ShaderCache";
  // Installed: with the logs; in a development tree: at its root.
  o.errorLog = (paths.isBundled ? paths.logs : paths.devRoot) / "shader_error.log";
  return o;
}

std::unique_ptr<Engine> Engine::create(std::string* error) {
  auto device = gpu::Device::create(gpu::Device::preferenceFromEnvironment(), error);
  if (!device) return nullptr;
  return create(std::move(device), defaultOptions(), error);
}

std::unique_ptr<Engine> Engine::create(std::unique_ptr<gpu::Device> device, const Options& options, std::string* error) {
  std::unique_ptr<Engine> engine(new Engine());
  engine->device_ = std::move(device);
  const KernelLibraryReport report = buildKernelLibrary(*engine->device_, {options.shaderCache, options.errorLog});
  if (report.fatal) {
    if (error) *error = report.fatalMessage;
    return nullptr;
  }
  engine->fusion_ = std::make_unique<PassFusion>(*engine->device_, PassFusion::Options{options.shaderCache, options.errorLog});
  // OMBRIK_FUSE=0 runs every pass on its own: the way to time or check what merging brings.
  if (const char* fuse = std::getenv("OMBRIK_FUSE"); fuse && std::string(fuse) == "0") engine->fusePasses = false;
  return engine;
}

std::string Engine::deviceDescription() const {
  const auto& info = device_->info();
  return info.name + (info.cpu ? " (CPU, Vulkan " : " (GPU, Vulkan ") + info.apiVersion + ")";
}

// ---- comp size and sources

void Engine::setComp(int width, int height, bool reconform) {
  if (width == compW && height == compH) return;
  compW = width;
  compH = height;
  std::lock_guard g(poolLock_);
  if (reconform) {
    pool_.clear();
    mediaTex_.clear();
    for (const auto& [id, picture] : sources_) dirtyMedia_.insert(id);
  } else if (pool_.size() > 400) {
    pool_.clear();
  }
}

void Engine::addSource(std::optional<SourcePicture> picture, const Uuid& id) {
  // The uploaded texture is kept for the next picture of this source: a clip's frames have one size.
  if (auto it = sourceTex_.find(id); it != sourceTex_.end()) {
    spareSourceTex_[id] = std::move(it->second);
    sourceTex_.erase(it);
  }
  if (!picture || picture->empty()) {
    sources_.erase(id);
    spareSourceTex_.erase(id);
    mediaTex_.erase(id);
    dirtyMedia_.erase(id);
    return;
  }
  sources_[id] = std::move(*picture);
  dirtyMedia_.insert(id);
}

Engine::Tex Engine::fitPicture(const SourcePicture& picture, int width, int height, gpu::CommandList& commands,
                               bool transparent, Tex into) {
  if (picture.empty() || width < 1 || height < 1) return nullptr;
  Tex out = into ? into : device_->createTexture(width, height, gpu::Format::rgba16Float);
  if (!out) return nullptr;
  const float s = std::min(float(out->width()) / picture.width, float(out->height()) / picture.height);
  const float P[] = {s, (out->width() - picture.width * s) * 0.5f, (out->height() - picture.height * s) * 0.5f,
                     transparent ? 1.0f : 0.0f};
  if (picture.planar) return recordPlanar(commands, picture, P, out) ? out : nullptr;
  // One upload texture serves every fit of its size: their commands run one after the other.
  Tex& src = fitSource_;
  if (!src || src->width() != picture.width || src->height() != picture.height)
    src = device_->createTexture(picture.width, picture.height, gpu::Format::rgba16Float);
  if (!src) return nullptr;
  commands.upload(src, picture.rgba->data(), picture.rgba->size() * 2);
  const Tex list[] = {src, out};
  commands.dispatch("g_conform", list, P);
  return out;
}

bool Engine::recordPlanar(gpu::CommandList& commands, const SourcePicture& picture, std::span<const float, 4> fit,
                          const Tex& out) {
  const PlanarPicture& p = *picture.planar;
  Tex list[4];
  for (int i = 0; i < 3; ++i) {
    const auto& bytes = p.planes[i];
    const int stride = p.strides[i];
    if (!bytes || stride < 4 || stride % 4 || bytes->size() % stride) return false;
    // Four bytes a texel: a row of `stride` bytes is stride / 4 texels wide.
    const int w = stride / 4, h = int(bytes->size() / stride);
    Tex& t = planeTex_[i];
    if (!t || t->width() != w || t->height() != h) t = device_->createTexture(w, h, gpu::Format::rgba8Unorm);
    if (!t) return false;
    commands.upload(t, bytes->data(), bytes->size());
    list[i] = t;
  }
  // Straight into `out` when the fit is the frame's own size or exactly half of it (the
  // preview); else converted at its own size and fitted from there as any picture is.
  int step = 0;
  for (int n : {1, 2})
    if (picture.width % n == 0 && picture.height % n == 0 && out->width() == picture.width / n &&
        out->height() == picture.height / n && fit[0] == 1.0f / float(n) && fit[1] == 0.0f && fit[2] == 0.0f)
      step = n;
  const bool same = step > 0;
  Tex& rgb = planarRGB_;
  if (!same && (!rgb || rgb->width() != picture.width || rgb->height() != picture.height))
    rgb = device_->createTexture(picture.width, picture.height, gpu::Format::rgba16Float);
  list[3] = same ? out : rgb;
  if (!list[3]) return false;
  // Code values to 0..1 luma and -0.5..0.5 chroma, as scale and offset: full range spans every
  // code, limited range 16..235 (luma) and 16..240 (chroma) at 8 bits, shifted up for more.
  const float unit = float(1 << (p.bits - 8)), top = float((1 << p.bits) - 1);
  const float ys = p.fullRange ? 1.0f / top : 1.0f / (219.0f * unit), yo = p.fullRange ? 0.0f : -16.0f / 219.0f;
  const float cs = p.fullRange ? 1.0f / top : 1.0f / (224.0f * unit);
  const float co = p.fullRange ? -128.0f * unit / top : -128.0f / 224.0f;
  const float P[] = {0, 0, float(p.chromaShiftX), float(p.chromaShiftY), float(p.bytesPerSample),
                     ys, yo, cs, co, p.kr, p.kb, float(picture.width), float(picture.height)};
  // A thread makes the pixels of one luma texel: 4 samples at 8 bits, 2 at 16.
  const gpu::Span span{4 / std::max(1, p.bytesPerSample), 1};
  commands.dispatch(step == 2 ? "g_yuv2" : "g_yuv", list, P, {}, span);
  if (same) return true;
  const Tex conform[] = {rgb, out};
  commands.dispatch("g_conform", conform, fit);
  return true;
}

Engine::Tex Engine::fitInEvaluation(const SourcePicture& picture) {
  if (!ev_ || picture.empty() || compW < 1 || compH < 1) return nullptr;
  Tex out = device_->createTexture(compW, compH, gpu::Format::rgba16Float);
  if (!out) return nullptr;
  const int w = compW, h = compH;
  record([this, picture, w, h, out](gpu::CommandList& c) { fitPicture(picture, w, h, c, false, out); }, {out});
  return out;
}

Engine::Tex Engine::fastFrame(const SourcePicture& picture, int width, int height, Tex into) {
  if (picture.empty() || width < 1 || height < 1) return nullptr;
  auto commands = device_->begin();
  if (!commands) return nullptr;
  if (!into || into->width() != width || into->height() != height || into->format() != gpu::Format::rgba8Unorm)
    into = device_->createTexture(width, height, gpu::Format::rgba8Unorm);
  Tex out = fitPicture(picture, width, height, *commands, false, into);
  return out && device_->submitAndWait(*commands) ? out : nullptr;
}

Engine::Tex Engine::fitTexture(const SourcePicture& picture, const std::string& key) {
  if (compW < 1 || compH < 1) return nullptr;
  auto commands = device_->begin();
  if (!commands) return nullptr;
  Tex out = fitPicture(picture, compW, compH, *commands, true, workTexture(key));
  return out && device_->submitAndWait(*commands) ? out : nullptr;
}

Engine::Tex Engine::fitTexture(const Tex& texture, const std::string& key) {
  if (!texture || compW < 1 || compH < 1) return nullptr;
  auto commands = device_->begin();
  Tex out = workTexture(key);
  if (!commands || !out) return nullptr;
  const float s = std::min(float(compW) / texture->width(), float(compH) / texture->height());
  const float P[] = {s, (compW - texture->width() * s) * 0.5f, (compH - texture->height() * s) * 0.5f, 1.0f};
  const Tex list[] = {texture, out};
  commands->dispatch("g_conform", list, P);
  return device_->submitAndWait(*commands) ? out : nullptr;
}

Engine::Tex Engine::conform(const Uuid& id) {
  auto it = sources_.find(id);
  if (it == sources_.end() || compW < 1 || compH < 1) return nullptr;
  const SourcePicture& picture = it->second;
  auto commands = device_->begin();
  if (!commands) return nullptr;
  if (picture.planar) {  // converted and fitted by the device, no upload texture kept
    Tex& out = mediaTex_[id];
    if (!out || out->width() != compW || out->height() != compH)
      out = device_->createTexture(compW, compH, gpu::Format::rgba16Float);
    const float s = std::min(float(compW) / picture.width, float(compH) / picture.height);
    const float P[] = {s, (compW - picture.width * s) * 0.5f, (compH - picture.height * s) * 0.5f, 0};
    if (!out || !recordPlanar(*commands, picture, P, out) || !device_->submitAndWait(*commands)) return nullptr;
    dirtyMedia_.erase(id);
    return out;
  }
  Tex& src = sourceTex_[id];
  if (!src) {
    if (auto spare = spareSourceTex_.find(id); spare != spareSourceTex_.end()) {
      if (spare->second->width() == picture.width && spare->second->height() == picture.height) src = spare->second;
      spareSourceTex_.erase(spare);
    }
    if (!src) src = device_->createTexture(picture.width, picture.height, gpu::Format::rgba16Float);
    if (!src) return nullptr;
    commands->upload(src, picture.rgba->data(), picture.rgba->size() * 2);
  }
  Tex& out = mediaTex_[id];
  if (!out || out->width() != compW || out->height() != compH)
    out = device_->createTexture(compW, compH, gpu::Format::rgba16Float);
  if (!out) return nullptr;
  const float s = std::min(float(compW) / picture.width, float(compH) / picture.height);
  const float P[] = {s, (compW - picture.width * s) * 0.5f, (compH - picture.height * s) * 0.5f};
  const Tex list[] = {src, out};
  commands->dispatch("g_conform", list, P);
  if (!device_->submitAndWait(*commands)) return nullptr;
  dirtyMedia_.erase(id);
  return out;
}

Engine::Tex Engine::conformed(const SourcePicture& picture) {
  if (compW < 1 || compH < 1) return nullptr;
  auto commands = device_->begin();
  if (!commands) return nullptr;
  Tex out = fitPicture(picture, compW, compH, *commands);
  if (!out || !device_->submitAndWait(*commands)) return nullptr;
  return out;
}

// ---- pool

Engine::Tex Engine::tex(const Uuid& node, int slot) {
  return workTexture(node.toString() + "-" + std::to_string(slot));
}

Engine::Tex Engine::workTexture(const std::string& key) {
  const std::string full = key + "-" + std::to_string(compW) + "x" + std::to_string(compH);
  std::lock_guard g(poolLock_);
  Tex& t = pool_[full];
  if (!t) t = device_->createTexture(std::max(compW, 1), std::max(compH, 1), gpu::Format::rgba16Float);
  return t;
}

void Engine::keepPool(const std::set<Uuid>& ids) {
  std::set<std::string> keep;
  for (const auto& id : ids) keep.insert(id.toString());
  std::lock_guard g(poolLock_);
  for (auto it = pool_.begin(); it != pool_.end();) {
    const std::string& key = it->first;
    const bool nodeKey = key.size() > 36 && key[8] == '-';
    if (nodeKey && !keep.count(key.substr(0, 36))) it = pool_.erase(it);
    else ++it;
  }
}

std::size_t Engine::poolSize() const {
  std::lock_guard g(poolLock_);
  return pool_.size();
}

// ---- passes

void Engine::dispatch(const std::string& kernel, std::span<const Tex> textures, std::span<const float> P,
                      std::span<const float> table, gpu::Span span) {
  if (!ev_) return;
  ev_->plan.dispatch({kernel, {textures.begin(), textures.end()}, {P.begin(), P.end()}, {table.begin(), table.end()}, span});
}

void Engine::record(std::function<void(gpu::CommandList&)> command, std::vector<Tex> touched) {
  if (ev_) ev_->plan.other(std::move(command), std::move(touched));
}

void Engine::dispatch(const std::string& kernel, std::initializer_list<Tex> textures, std::initializer_list<float> P) {
  dispatch(kernel, std::span<const Tex>(textures.begin(), textures.size()), std::span<const float>(P.begin(), P.size()));
}

void Engine::rescale(const Tex& from, const Tex& to) {
  if (!ev_ || !from || !to) return;
  const Tex list[] = {from, to};
  dispatch("k_resample", list, {});
}

void Engine::drawMesh(const Tex& source, const Tex& target, std::span<const float> vertices) {
  std::vector<float> copy(vertices.begin(), vertices.end());
  record([source, target, copy](gpu::CommandList& c) { c.drawTriangles("mesh", source, target, copy); }, {source, target});
}

void Engine::blur(const Tex& from, const Tex& to, float sigma) {
  if (!ev_ || !from || !to) return;
  // A direct separable Gaussian up to sigma 8 (radius 3 sigma). Beyond, the picture is halved
  // until sigma fits, blurred there, and brought back bilinearly: wide blurs cost little.
  auto scratch = [&](int w, int h, int n) {
    std::lock_guard g(poolLock_);
    Tex& t = pool_["blur|" + std::to_string(w) + "x" + std::to_string(h) + "|" + std::to_string(n)];
    if (!t) t = device_->createTexture(w, h, gpu::Format::rgba16Float);
    return t;
  };
  Tex cur = from;
  float s = sigma;
  int level = 0;
  while (s > 8.0f && std::min(cur->width(), cur->height()) > 16) {
    Tex half = scratch((cur->width() + 1) / 2, (cur->height() + 1) / 2, 10 + level++);
    const Tex list[] = {cur, half};
    dispatch("g_down2", list, {});
    cur = half;
    s *= 0.5f;
  }
  // The 2x2 means already spread the picture a little; take that out of what is left to blur.
  if (level > 0) s = std::sqrt(std::max(0.25f, s * s - 0.25f));
  const float P[] = {s, std::ceil(3.0f * s)};
  Tex across = scratch(cur->width(), cur->height(), 0);
  const bool direct = level == 0 && to->width() == cur->width() && to->height() == cur->height();
  Tex down = direct ? to : scratch(cur->width(), cur->height(), 1);
  const Tex h[] = {cur, across};
  dispatch("g_blurh", h, P, {}, {8, 1});  // each thread makes 8 pixels of a row
  const Tex v[] = {across, down};
  dispatch("g_blurv", v, P, {}, {1, 8});
  if (!direct) {
    const Tex up[] = {down, to};
    dispatch("k_resample", up, {});
  }
}

Engine::Tex Engine::alphaSideOf(const Uuid& id) const {
  auto it = alphaSide_.find(id);
  return it == alphaSide_.end() ? nullptr : it->second;
}

Engine::Tex Engine::inputTexture(const Edge& edge) const {
  if (edge.fromPort == 0) {
    auto it = outputs.find(edge.from);
    return it == outputs.end() ? nullptr : it->second;
  }
  if (edge.fromPort == 1) return alphaSideOf(edge.from);
  auto it = maskSide_.find(edge.from.toString() + "-" + std::to_string(edge.fromPort - 2));
  return it == maskSide_.end() ? nullptr : it->second;
}

}  // namespace ombrik
