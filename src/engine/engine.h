#pragma once
// The evaluator: one resolved graph at one time into textures. A pull evaluation with a memo
// per call, all passes recorded into one command list that is submitted and waited for once.
// Nothing of a node's result survives to the next evaluation except through the texture pool
// and the file-backed caches, so there is no dirty tracking.
//
// Operations are split by subject: engine.cpp (device, comp, sources, pool, passes),
// engine_evaluate.cpp (the evaluation order, inputs, alpha), engine_produce_raw.cpp (what each
// kind computes), engine_files.cpp (stills, raw frames, export), engine_video_frames.cpp (frames
// read straight from clips).
#include <array>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "engine/source_picture.h"
#include "graph/picture.h"
#include "graph/edge.h"
#include "graph/node.h"
#include "graph/uuid.h"
#include "gpu/texture.h"

namespace ombrik {

class PassFusion;

namespace gpu {
class Device;
class CommandList;
}  // namespace gpu

class Engine {
public:
  using Tex = gpu::TexturePtr;

  struct Options {
    std::filesystem::path shaderCache;  // SPIR-V cache folder
    std::filesystem::path errorLog;     // "shader_error.log"
  };
  // A device from OMBRIK_GPU (a GPU, else lavapipe) and the kernel library; null with a message.
  static std::unique_ptr<Engine> create(std::string* error);
  static std::unique_ptr<Engine> create(std::unique_ptr<gpu::Device> device, const Options& options, std::string* error);
  static Options defaultOptions();
  ~Engine();

  gpu::Device& device() { return *device_; }
  std::string deviceDescription() const;

  // ---- comp size
  int compW = 0;
  int compH = 0;
  float pxScale = 1;  // working size / full size: " px" parameters are multiplied by it
  void setComp(int width, int height, bool reconform);

  // ---- sources
  void addSource(std::optional<SourcePicture> picture, const Uuid& id);
  void updateSource(std::optional<SourcePicture> picture, const Uuid& id) { addSource(std::move(picture), id); }
  bool hasSource(const Uuid& id) const { return sources_.count(id) > 0; }
  const std::unordered_map<Uuid, SourcePicture>& sources() const { return sources_; }
  Tex conform(const Uuid& id);                      // the media texture of a source
  Tex conformed(const SourcePicture& picture);      // a comp-size texture, on its own commands
  Tex fitPicture(const SourcePicture& picture, int width, int height, gpu::CommandList& commands,
                 bool transparent = false, Tex into = nullptr);
  // The same fit at any size into an 8-bit texture; nothing for an empty picture or size.
  // `into`, when it has that size and format, is drawn into rather than a new texture made.
  Tex fastFrame(const SourcePicture& picture, int width, int height, Tex into = nullptr);
  // The fit on a transparent background into the work texture of `key`.
  Tex fitTexture(const SourcePicture& picture, const std::string& key);
  Tex fitTexture(const Tex& texture, const std::string& key);  // the same for a texture of any size
  std::optional<Picture> sourceThumb(const Uuid& id, int maxSide);

  // ---- evaluation
  void evaluate(const std::vector<Node>& nodes, const std::vector<Edge>& edges, float time,
                std::optional<Uuid> ignoreMatte = std::nullopt);
  std::unordered_map<Uuid, Tex> outputs;     // results of the last evaluation
  std::unordered_map<Uuid, Tex> muxAlpha;
  std::unordered_map<Uuid, Tex> compAlpha;
  Tex viewAlpha;
  std::set<Uuid> alwaysEval;
  std::set<Uuid> cacheAlphaFor;
  std::optional<Uuid> viewAlphaOf;
  bool leanEval = false;
  // Runs of pixel-wise passes merged into one kernel each (pass_fusion.h); off, every pass runs
  // on its own. Both give the same pictures.
  bool fusePasses = true;
  struct FusionStats {
    int passes = 0, runs = 0, merged = 0;
  };
  FusionStats lastFusion() const;
  int evalCount = 0;
  float evalTime = 0;
  std::size_t producedCount() const { return produced_; }  // nodes produced in the last evaluation
  Tex inputTexture(const Edge& edge) const;                 // after an evaluation, nothing evaluated
  Tex alphaSideOf(const Uuid& id) const;

  // ---- mattes kept after an evaluation (engine_masks.cpp)
  // The sum of the mattes wired to a genfill, motionvec or model node, written each time such a
  // node is produced and never removed by a later evaluation: the zone its job works on.
  std::unordered_map<Uuid, Tex> mergedSide;
  Tex mergedAlpha(const Uuid& id, int port) const;
  // An AI matte file is layered when it carries colour channels (a hair matte's hair and zone);
  // a grey file is one matte.
  static bool isLayeredMatte(const std::filesystem::path& path);

  // ---- matte commands outside an evaluation, each on a command list of its own
  // (engine_matte_commands.cpp)
  // What changed between two pictures of one size, softened: a matte; nothing for other sizes.
  Tex diffMatte(const Tex& a, const Tex& b);
  // The box of a matte's red values above 0.02 with a margin, as fractions (x, y, w, h) of the
  // texture; nothing when empty, not rgba16f, or covering more than 0.8 of the picture.
  std::optional<std::array<double, 4>> matteBox(const Tex& matte);
  struct Layer {
    Tex texture;
    float opacity = 1;
    int mode = 0;
  };
  // Layers over a solid background (r, g, b) through k_layer, in the work textures key-a, key-b.
  Tex compositeLayers(const std::vector<Layer>& layers, const std::string& key, std::array<double, 3> background);

  // ---- pool
  Tex tex(const Uuid& node, int slot);
  Tex workTexture(const std::string& key);
  void keepPool(const std::set<Uuid>& ids);
  std::size_t poolSize() const;

  // ---- passes, recorded into the open evaluation (no-ops outside one)
  void dispatch(const std::string& kernel, std::initializer_list<Tex> textures, std::initializer_list<float> P);
  void dispatch(const std::string& kernel, std::span<const Tex> textures, std::span<const float> P,
                std::span<const float> table = {}, gpu::Span span = {});
  // Any other command, in order with the passes; `touched`: the textures it reads or writes.
  void record(std::function<void(gpu::CommandList&)> command, std::vector<Tex> touched);
  void blur(const Tex& from, const Tex& to, float sigma);  // Gaussian, clamp-to-edge
  void rescale(const Tex& from, const Tex& to);           // bilinear
  // Triangles from `source` drawn over `target`: 4 floats a vertex (position 0..1, texture coordinate).
  void drawMesh(const Tex& source, const Tex& target, std::span<const float> vertices);

  // ---- user kernels (user_kernels.cpp)
  // Compiles a kernel written in the effect convention; nothing on success (the pipeline is set
  // or replaced at once), else the compiler's messages placed in the user's texts.
  std::optional<std::string> compileUserKernel(const std::string& name, const std::string& helpers,
                                               const std::string& body, const std::vector<std::string>& params);

  // ---- files
  bool writeRaw(const Tex& texture, const std::filesystem::path& path, std::string* error = nullptr);
  Tex rawNoise(const std::filesystem::path& path, bool cap);
  Tex cachedImage(const std::filesystem::path& path, int width, int height);
  bool export_(const Tex& texture, const std::filesystem::path& path, std::string* error = nullptr);
  std::size_t imageCacheBytes() const { return imageBytes_; }
  // Empties the still cache, the pool and the raw cache.
  void purgeImageCache();
  // Forgets the raw frames whose path begins with `prefix`: a job calls it before rewriting them.
  void purgeRaw(const std::string& prefix);
  // Pixels of a texture as floats (rgba, row 0 on top), on a command list of its own.
  std::vector<float> readPixels(const Tex& texture);

  // ---- clip frames (engine_video_frames.cpp)
  // Frame `frame` (clamped to the clip) conformed to the comp size; nothing when the file isn't a
  // readable clip. The last 12 are kept; reading on from the last frame asked costs no wait.
  Tex videoFrame(const std::filesystem::path& path, int frame);
  // Forgets the cached frames and closes the readers, so that a clip rewritten under the same
  // name is read again.
  void purgeVideoFrames();
  std::size_t videoFrameCount() const { return vfCache_.size(); }

  // ---- read-backs for the interface (engine_readback.cpp)
  // Mean colour of the square x-r..x+r, y-r..y+r cut to the texture; nothing when empty.
  std::optional<std::array<float, 3>> readColor(const Tex& texture, int x, int y, int r);
  std::vector<std::array<float, 3>> thumbPixels(const Tex& texture, int width, int height);
  Tex snapshotScaled(const Tex& texture, int width, int height);  // 8-bit, at least 1x1
  Tex maskView(const Tex& mask, const Tex& picture);              // outside darkened, tinted red
  std::optional<Picture> thumbnail(const Tex& texture, int maxSide);  // may enlarge
  std::vector<std::optional<Picture>> thumbnails(std::span<const Tex> textures, int maxSide);  // many at once
  bool writePreview(const Tex& texture, const std::filesystem::path& path, int maxSide);  // never enlarges

  // ---- the viewer's display pass (engine_viewer_picture.cpp)
  // mode: 0 the picture, 1 the picture as a matte tinted over `before`, 2 a wipe showing `before`
  // left of `wipe` (u, 0..1) with a line of half-width `lineW` (u), 3 the difference with `before`
  // times 4. nearest > 0.5 samples the nearest texel instead of bilinear, clamp-to-edge either way.
  struct ViewP {
    float mode = 0, wipe = 0.5f, lineW = 0, nearest = 0;
  };
  // `img` (and `before` for modes 1-3) drawn into a new rgba8 texture of width x height, each pixel
  // sampled at its centre, values kept as they are. Without `before`, mode 1 tints over `img`
  // itself and modes 2-3 show the picture. Nothing when img is empty or the kernel is missing.
  // `into`, when it has that size, is drawn into instead: the viewer keeps one for steady playback.
  Tex viewerPicture(const Tex& img, const Tex& before, const ViewP& p, int width, int height, Tex into = nullptr);
  // The bytes of an 8-bit texture into a buffer the caller keeps (its memory is reused).
  bool readBytes(const Tex& texture, std::vector<std::uint8_t>& into);

  // ---- viewing LUTs (engine_lut.cpp)
  // The cube of a LUT key, uploaded once and kept; nothing when the key gives no table.
  Tex lutTexture(const std::string& key);
  // `texture` through the LUT of `key`, on a command list of its own. Slots 0 and 1 (the viewer,
  // a render) each remember their last call: the same key, source and stamp (the evaluation
  // count) give that result again without GPU work. No table or no pipeline: `texture` itself.
  Tex applyLUT(const Tex& texture, const std::string& key, int stamp, int slot);

private:
  Engine() = default;
  struct Eval;  // the state of one evaluation
  friend struct EngineProduce;

  Tex eval(const Uuid& id);
  void recordPlan();
  Tex fitInEvaluation(const SourcePicture& picture);
  // A frame's planes uploaded and converted into `out`, fitted as P of g_conform says.
  bool recordPlanar(gpu::CommandList& commands, const SourcePicture& picture, std::span<const float, 4> fit, const Tex& out);  // fitPicture at the comp size, in order with the passes  // the evaluation's passes into its command list, runs merged
  std::vector<Uuid> upstreamFirst(const std::vector<Uuid>& roots) const;
  Tex input(const Uuid& id, int port);
  Tex produce(const Node& node);
  Tex produceLimited(const Node& node);
  Tex produceRaw(const Node& node);
  Tex produceFx(const Node& node);
  Tex produceKeyer3D(const Node& node, const Tex& front);
  Tex combinedMattes(const Node& node);
  Tex alphaOut(const Uuid& id);
  Tex maskOut(const Uuid& id, int k);
  Tex produceMasked(const Node& node);
  Tex produceMask(const Node& node);
  Tex renderMaskLayer(const GMask& layer, const Tex& texture);
  Tex renderLayers(const std::vector<GMask>& list, const Node& node, int slot);
  Tex alphasSum(const Node& node, int port, int slot);
  // The matte of an AI job for the resolved frame (magicDirPath, magicCur), refined: neighbour
  // frames against chatter, channel choice, smoothing, edge shaping, expand and feather, at the
  // comp size in a texture of the node. Nothing without a folder or a readable frame.
  Tex refinedMatte(const Node& node);
  std::vector<float> shapeOutline(const GMask& layer) const;  // pixel pairs; empty when undrawable
  static int firstMattePort(const Node& node);
  Tex limitToMatte(const Node& node, const Tex& front, const Tex& result);
  Tex readCacheFile(const Node& node, const std::string& path);
  const Edge* edgeInto(const Uuid& id, int port) const;
  Tex resampled(const Tex& from, int width, int height, gpu::Format format);

  std::unique_ptr<gpu::Device> device_;
  std::unique_ptr<PassFusion> fusion_;
  std::unordered_map<Uuid, SourcePicture> sources_;
  std::unordered_map<Uuid, Tex> sourceTex_;  // the picture as uploaded, at its own size
  std::unordered_map<Uuid, Tex> spareSourceTex_;  // a replaced picture's texture, for the next one
  Tex fitSource_;                                 // fitPicture's upload texture
  std::array<Tex, 3> planeTex_;                   // a decoded frame's planes, as uploaded
  Tex planarRGB_;                                 // such a frame converted, before its fit
  std::unordered_map<Uuid, Tex> mediaTex_;
  std::set<Uuid> dirtyMedia_;
  std::map<std::string, Tex> pool_;
  mutable std::mutex poolLock_;

  struct ImageEntry {
    std::filesystem::file_time_type date;
    Tex texture;
  };
  std::map<std::string, ImageEntry> imageCache_;
  std::vector<std::string> imageOrder_;
  std::size_t imageBytes_ = 0;
  std::map<std::string, Tex> rawCache_;
  std::vector<std::string> rawOrder_;
  std::size_t rawBytes_ = 0;
  std::mutex rawLock_;

  // Clip frames. The cache and what is known of each clip belong to the evaluating thread; the
  // readers and the frame read ahead live on a queue of their own (engine_video_frames.cpp).
  struct ClipInfoEntry {
    double fps = 25;
    int frames = 1;
  };
  struct ClipReading;
  struct ClipReadingDeleter {
    void operator()(ClipReading* reading) const;  // stops the queue before the readers go
  };
  std::map<std::string, Tex> vfCache_;
  std::vector<std::string> vfOrder_;
  std::map<std::string, ClipInfoEntry> vfInfo_;
  std::unique_ptr<ClipReading, ClipReadingDeleter> clipReading_;  // made on the first clip read

  std::unique_ptr<Eval> ev_;  // set while an evaluation runs
  std::unordered_map<Uuid, Tex> alphaSide_;
  std::unordered_map<std::string, Tex> maskSide_;
  std::size_t produced_ = 0;

  // Viewing LUTs (engine_lut.cpp). Declared after the device, so they go before it.
  struct LutMemo {
    std::string key;
    std::weak_ptr<gpu::Texture> source;  // identity only: a memo doesn't keep a picture alive
    int stamp = 0;
    Tex result;
  };
  std::map<std::string, Tex> lutTex_;
  LutMemo lutOut_, lutOut2_;
};

}  // namespace ombrik
