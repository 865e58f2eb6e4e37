#pragma once
// The GPU: a Vulkan device (a real GPU when there is one, else Mesa's lavapipe on the CPU),
// compute pipelines by kernel name, and command lists that record passes for one submission.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "gpu/texture.h"

namespace ombrik::gpu {

enum class DevicePreference { automatic, cpu };

struct DeviceInfo {
  std::string name;
  bool cpu = false;         // lavapipe or another CPU implementation
  std::string apiVersion;   // "1.3.230"
};

class CommandList;

class Device {
public:
  // Picks a GPU when one exists (discrete first), else the CPU driver. Null with a message on failure.
  static std::unique_ptr<Device> create(DevicePreference preference, std::string* error);
  // OMBRIK_GPU=cpu forces the CPU driver.
  static DevicePreference preferenceFromEnvironment();
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  const DeviceInfo& info() const;
  // True once the device reported a loss or an out-of-memory: the owner should rebuild.
  bool failed() const;
  const std::string& failure() const;
  // Marks the device unusable, as a lost device would; its owner then rebuilds.
  void reportFailure(const std::string& why);

  TexturePtr createTexture(int width, int height, Format format);  // zero-filled at first use
  TexturePtr createTexture3D(int size);                             // rgba16Float cube for LUTs

  bool createPipeline(const std::string& name, const std::vector<std::uint32_t>& spirv, std::string* error);
  bool hasPipeline(const std::string& name) const;
  // A triangle-list pipeline drawing onto rgba16Float textures: vertices of 4 floats (position
  // 0..1 across the target, texture coordinate), the source sampled at binding 0.
  // False when the device has no dynamic rendering.
  bool createTrianglePipeline(const std::string& name, const std::vector<std::uint32_t>& vertexSpirv,
                              const std::vector<std::uint32_t>& fragmentSpirv, std::string* error);
  std::size_t pipelineCount() const;

  std::unique_ptr<CommandList> begin();
  // Submits and waits until the GPU has finished; false on a device error.
  bool submitAndWait(CommandList& commands);

  // Synchronous transfers on a command list of their own. Bytes are packed rows, row 0 on top.
  bool write(const TexturePtr& texture, const void* bytes, std::size_t size);
  std::vector<std::uint8_t> read(const TexturePtr& texture);
  // The same into a buffer kept by the caller: a steady reader (the viewer) reuses its memory.
  bool read(const TexturePtr& texture, std::vector<std::uint8_t>& into);

  std::size_t liveTextureCount() const;  // textures created and not yet destroyed

  struct Impl;

private:
  explicit Device(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
  friend class CommandList;
};

// Passes recorded in order and submitted once; a pass waits for earlier ones only when it touches
// a texture they touched.
class CommandList {
public:
  ~CommandList();
  // One compute pass: textures bound in list order, P as push constants (at most 32 floats),
  // an optional table as a storage buffer; one thread per pixel of the last texture, or per
  // block of `span` pixels for kernels that make several neighbours at once.
  // An unknown kernel does nothing.
  void dispatch(const std::string& kernel, std::span<const TexturePtr> textures, std::span<const float> P,
                std::span<const float> table = {}, Span span = {});
  void dispatch(const std::string& kernel, std::initializer_list<TexturePtr> textures,
                std::initializer_list<float> P = {}) {
    dispatch(kernel, std::span<const TexturePtr>(textures.begin(), textures.size()),
             std::span<const float>(P.begin(), P.size()));
  }
  void upload(const TexturePtr& texture, const void* bytes, std::size_t size);
  void copy(const TexturePtr& from, const TexturePtr& to);  // same size and format
  // The texture's bytes as the list reaches this point, in `into` once the list is submitted:
  // many reads ride on one submission.
  void read(const TexturePtr& texture, std::vector<std::uint8_t>* into);
  void clear(const TexturePtr& texture, float r, float g, float b, float a);
  // Draws triangles (3 vertices of 4 floats each) from `source` onto `target`, over what it holds.
  void drawTriangles(const std::string& pipeline, const TexturePtr& source, const TexturePtr& target,
                     std::span<const float> vertices);
  std::size_t passCount() const;

  struct Impl;

private:
  friend class Device;
  explicit CommandList(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace ombrik::gpu
