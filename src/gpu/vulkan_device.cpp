// The Vulkan implementation of the device layer: the only code that includes Vulkan.
//
// Every texture lives in the GENERAL layout, so a pass can sample one texture and write another
// without layout transitions; a full memory barrier after each recorded operation keeps passes
// in order. Descriptors are pushed per pass (VK_KHR_push_descriptor): no pools to manage.
#include <vulkan/vulkan.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "gpu/device.h"

namespace ombrik::gpu {

namespace {

constexpr std::uint32_t kSamplerSlots = 8;   // bindings 0..7 sampled, 8..15 storage
constexpr std::uint32_t kTableBinding = 16;
constexpr std::uint32_t kCubeBinding = 17;
constexpr std::uint32_t kPushBytes = 128;    // 32 floats
constexpr std::uint32_t kGroup = 16;          // threads per group side, as in the kernels' prelude

// A Vulkan info record with every field zero but its type.
template <class T>
T vkInit(VkStructureType type) {
  T v{};
  v.sType = type;
  return v;
}

std::string vkError(VkResult r) {
  switch (r) {
    case VK_ERROR_DEVICE_LOST: return "périphérique GPU perdu";
    case VK_ERROR_OUT_OF_DEVICE_MEMORY: return "mémoire GPU épuisée";
    case VK_ERROR_OUT_OF_HOST_MEMORY: return "mémoire épuisée";
    default: return "erreur Vulkan " + std::to_string(int(r));
  }
}

VkFormat vkFormat(Format f) {
  return f == Format::rgba16Float ? VK_FORMAT_R16G16B16A16_SFLOAT : VK_FORMAT_R8G8B8A8_UNORM;
}

}  // namespace

struct Device::Impl {
  DeviceInfo info;
  VkInstance instance = VK_NULL_HANDLE;
  VkPhysicalDevice physical = VK_NULL_HANDLE;
  VkDevice device = VK_NULL_HANDLE;
  VkQueue queue = VK_NULL_HANDLE;
  std::uint32_t queueFamily = 0;
  VkCommandPool commandPool = VK_NULL_HANDLE;
  VkDescriptorSetLayout setLayout = VK_NULL_HANDLE;
  VkPipelineLayout pipelineLayout = VK_NULL_HANDLE;
  VkSampler sampler = VK_NULL_HANDLE;
  PFN_vkCmdPushDescriptorSetKHR pushDescriptors = nullptr;
  PFN_vkCmdBeginRenderingKHR beginRendering = nullptr;
  PFN_vkCmdEndRenderingKHR endRendering = nullptr;
  VkDescriptorSetLayout drawSetLayout = VK_NULL_HANDLE;
  VkPipelineLayout drawLayout = VK_NULL_HANDLE;
  VkPhysicalDeviceMemoryProperties memory{};
  std::map<std::string, VkPipeline> pipelines;
  mutable std::mutex lock;  // queue, pool and pipeline map: readbacks may come from other threads
  std::atomic<std::size_t> liveTextures{0};
  bool failed = false;
  std::string failure;
  TexturePtr dummy2D, dummy3D;
  VkBuffer dummyBuffer = VK_NULL_HANDLE;
  VkDeviceMemory dummyBufferMemory = VK_NULL_HANDLE;

  ~Impl();
  void fail(VkResult r) {
    if (r == VK_ERROR_DEVICE_LOST || r == VK_ERROR_OUT_OF_DEVICE_MEMORY || r == VK_ERROR_OUT_OF_HOST_MEMORY) {
      failed = true;
      failure = vkError(r);
    }
  }
  std::uint32_t memoryType(std::uint32_t bits, VkMemoryPropertyFlags want) const {
    for (std::uint32_t i = 0; i < memory.memoryTypeCount; ++i)
      if ((bits & (1u << i)) && (memory.memoryTypes[i].propertyFlags & want) == want) return i;
    return UINT32_MAX;
  }
  bool makeBuffer(VkDeviceSize size, VkBufferUsageFlags usage, VkBuffer* buffer, VkDeviceMemory* mem);

  // Staging buffers of finished command lists, kept for the next list that needs one of the same
  // size and use: steady playback uploads a frame of one size again and again, and fresh host
  // memory costs a page fault and a cleared page for every 4 KiB.
  struct Staging {
    VkBuffer buffer = VK_NULL_HANDLE;
    VkDeviceMemory memory = VK_NULL_HANDLE;
    VkDeviceSize size = 0;
    VkBufferUsageFlags usage = 0;
  };
  std::vector<Staging> spare;
  VkDeviceSize spareBytes = 0;
  std::mutex spareLock;
  static constexpr VkDeviceSize kSpareBytes = 256ull << 20;
  bool takeSpare(VkDeviceSize size, VkBufferUsageFlags usage, Staging* out) {
    std::lock_guard g(spareLock);
    for (auto it = spare.begin(); it != spare.end(); ++it)
      if (it->size == size && it->usage == usage) {
        *out = *it;
        spareBytes -= it->size;
        spare.erase(it);
        return true;
      }
    return false;
  }
  void giveBack(const Staging& b) {
    {
      std::lock_guard g(spareLock);
      if (spareBytes + b.size <= kSpareBytes) {
        spare.push_back(b);
        spareBytes += b.size;
        return;
      }
    }
    vkDestroyBuffer(device, b.buffer, nullptr);
    vkFreeMemory(device, b.memory, nullptr);
  }
  // Registers a pipeline under its name. Replacing one (a user kernel compiled again) waits
  // until nothing uses the old one.
  void store(const std::string& name, VkPipeline pipeline) {
    std::lock_guard g(lock);
    auto [it, inserted] = pipelines.emplace(name, pipeline);
    if (inserted) return;
    vkQueueWaitIdle(queue);
    vkDestroyPipeline(device, it->second, nullptr);
    it->second = pipeline;
  }
  TexturePtr makeTexture(int w, int h, int d, Format f, bool threeD);
};

// ---------------------------------------------------------------------------------------------

class VulkanTexture final : public Texture {
public:
  VulkanTexture(Device::Impl* dev, int w, int h, int d, Format f, bool threeD)
      : Texture(w, h, d, f, threeD), dev_(dev) {}
  ~VulkanTexture() override {
    if (view) vkDestroyImageView(dev_->device, view, nullptr);
    if (image) vkDestroyImage(dev_->device, image, nullptr);
    if (memory) vkFreeMemory(dev_->device, memory, nullptr);
    --dev_->liveTextures;
  }
  VkImage image = VK_NULL_HANDLE;
  VkImageView view = VK_NULL_HANDLE;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  bool initialised = false;  // moved to GENERAL and zero-filled by a recorded command

private:
  Device::Impl* dev_;
};

VulkanTexture* vk(const TexturePtr& t) { return static_cast<VulkanTexture*>(t.get()); }

bool Device::Impl::makeBuffer(VkDeviceSize size, VkBufferUsageFlags usage, VkBuffer* buffer, VkDeviceMemory* mem) {
  auto bi = vkInit<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
  bi.size = std::max<VkDeviceSize>(size, 16);
  bi.usage = usage;
  if (VkResult r = vkCreateBuffer(device, &bi, nullptr, buffer); r != VK_SUCCESS) return fail(r), false;
  VkMemoryRequirements req;
  vkGetBufferMemoryRequirements(device, *buffer, &req);
  auto ai = vkInit<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  ai.allocationSize = req.size;
  ai.memoryTypeIndex = memoryType(req.memoryTypeBits, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
  if (VkResult r = vkAllocateMemory(device, &ai, nullptr, mem); r != VK_SUCCESS) {
    vkDestroyBuffer(device, *buffer, nullptr);
    *buffer = VK_NULL_HANDLE;
    return fail(r), false;
  }
  vkBindBufferMemory(device, *buffer, *mem, 0);
  return true;
}

TexturePtr Device::Impl::makeTexture(int w, int h, int d, Format f, bool threeD) {
  if (w < 1 || h < 1 || d < 1) return nullptr;
  auto t = std::make_shared<VulkanTexture>(this, w, h, d, f, threeD);
  ++liveTextures;
  auto ii = vkInit<VkImageCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO);
  ii.imageType = threeD ? VK_IMAGE_TYPE_3D : VK_IMAGE_TYPE_2D;
  ii.format = vkFormat(f);
  ii.extent = {std::uint32_t(w), std::uint32_t(h), std::uint32_t(d)};
  ii.mipLevels = 1;
  ii.arrayLayers = 1;
  ii.samples = VK_SAMPLE_COUNT_1_BIT;
  ii.tiling = VK_IMAGE_TILING_OPTIMAL;
  ii.usage = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT |
             (threeD ? 0 : VK_IMAGE_USAGE_STORAGE_BIT | VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT);
  ii.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
  if (VkResult r = vkCreateImage(device, &ii, nullptr, &t->image); r != VK_SUCCESS) return fail(r), nullptr;
  VkMemoryRequirements req;
  vkGetImageMemoryRequirements(device, t->image, &req);
  auto ai = vkInit<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  ai.allocationSize = req.size;
  ai.memoryTypeIndex = memoryType(req.memoryTypeBits, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT);
  if (ai.memoryTypeIndex == UINT32_MAX) ai.memoryTypeIndex = memoryType(req.memoryTypeBits, 0);
  if (VkResult r = vkAllocateMemory(device, &ai, nullptr, &t->memory); r != VK_SUCCESS) return fail(r), nullptr;
  vkBindImageMemory(device, t->image, t->memory, 0);
  auto vi = vkInit<VkImageViewCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO);
  vi.image = t->image;
  vi.viewType = threeD ? VK_IMAGE_VIEW_TYPE_3D : VK_IMAGE_VIEW_TYPE_2D;
  vi.format = ii.format;
  vi.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  if (VkResult r = vkCreateImageView(device, &vi, nullptr, &t->view); r != VK_SUCCESS) return fail(r), nullptr;
  return t;
}

Device::Impl::~Impl() {
  if (device) {
    vkDeviceWaitIdle(device);
    dummy2D.reset();
    dummy3D.reset();
    for (const auto& b : spare) {
      vkDestroyBuffer(device, b.buffer, nullptr);
      vkFreeMemory(device, b.memory, nullptr);
    }
    if (dummyBuffer) vkDestroyBuffer(device, dummyBuffer, nullptr);
    if (dummyBufferMemory) vkFreeMemory(device, dummyBufferMemory, nullptr);
    for (auto& [name, p] : pipelines) vkDestroyPipeline(device, p, nullptr);
    if (sampler) vkDestroySampler(device, sampler, nullptr);
    if (pipelineLayout) vkDestroyPipelineLayout(device, pipelineLayout, nullptr);
    if (drawLayout) vkDestroyPipelineLayout(device, drawLayout, nullptr);
    if (drawSetLayout) vkDestroyDescriptorSetLayout(device, drawSetLayout, nullptr);
    if (setLayout) vkDestroyDescriptorSetLayout(device, setLayout, nullptr);
    if (commandPool) vkDestroyCommandPool(device, commandPool, nullptr);
    vkDestroyDevice(device, nullptr);
  }
  if (instance) vkDestroyInstance(instance, nullptr);
}

// ---------------------------------------------------------------------------------------------

struct CommandList::Impl {
  Device::Impl* dev = nullptr;
  VkCommandBuffer cb = VK_NULL_HANDLE;
  std::vector<TexturePtr> keep;  // alive until the list is done
  std::vector<Device::Impl::Staging> buffers;
  struct Readback {
    VkBuffer buffer;
    VkDeviceMemory memory;
    std::size_t size;
    std::vector<std::uint8_t>* out;
  };
  std::vector<Readback> readbacks;
  std::size_t passes = 0;

  ~Impl() {
    if (!dev) return;
    for (const auto& b : buffers) dev->giveBack(b);
    if (cb) {
      std::lock_guard g(dev->lock);
      vkFreeCommandBuffers(dev->device, dev->commandPool, 1, &cb);
    }
  }

  void barrier() {
    auto mb = vkInit<VkMemoryBarrier>(VK_STRUCTURE_TYPE_MEMORY_BARRIER);
    mb.srcAccessMask = VK_ACCESS_MEMORY_WRITE_BIT;
    mb.dstAccessMask = VK_ACCESS_MEMORY_READ_BIT | VK_ACCESS_MEMORY_WRITE_BIT;
    vkCmdPipelineBarrier(cb, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, VK_PIPELINE_STAGE_ALL_COMMANDS_BIT, 0, 1, &mb, 0,
                         nullptr, 0, nullptr);
  }

  // First use of a texture: GENERAL layout, zero content.
  void prepare(const TexturePtr& t) {
    VulkanTexture* v = vk(t);
    if (v->initialised) return;
    v->initialised = true;
    auto ib = vkInit<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
    ib.srcAccessMask = 0;
    ib.dstAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
    ib.oldLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    ib.newLayout = VK_IMAGE_LAYOUT_GENERAL;
    ib.srcQueueFamilyIndex = ib.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
    ib.image = v->image;
    ib.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    vkCmdPipelineBarrier(cb, VK_PIPELINE_STAGE_TOP_OF_PIPE_BIT, VK_PIPELINE_STAGE_TRANSFER_BIT, 0, 0, nullptr, 0,
                         nullptr, 1, &ib);
    VkClearColorValue zero{};
    VkImageSubresourceRange range{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    vkCmdClearColorImage(cb, v->image, VK_IMAGE_LAYOUT_GENERAL, &zero, 1, &range);
    barrier();
  }

  bool stagingBuffer(std::size_t size, VkBufferUsageFlags usage, VkBuffer* b, VkDeviceMemory* m) {
    Device::Impl::Staging st;
    st.size = std::max<VkDeviceSize>(size, 16);
    st.usage = usage;
    if (!dev->takeSpare(st.size, usage, &st) && !dev->makeBuffer(st.size, usage, &st.buffer, &st.memory)) return false;
    *b = st.buffer;
    *m = st.memory;
    buffers.push_back(st);
    return true;
  }

  // A host-visible buffer holding a copy of `bytes`, alive until the list is done; null on failure.
  VkBuffer filledBuffer(const void* bytes, std::size_t size, VkBufferUsageFlags usage) {
    VkBuffer b;
    VkDeviceMemory m;
    if (!stagingBuffer(size, usage, &b, &m)) return VK_NULL_HANDLE;
    void* p;
    vkMapMemory(dev->device, m, 0, VK_WHOLE_SIZE, 0, &p);
    std::memcpy(p, bytes, size);
    vkUnmapMemory(dev->device, m);
    return b;
  }

  void readback(const TexturePtr& t, std::vector<std::uint8_t>* out) {
    prepare(t);
    keep.push_back(t);
    VkBuffer b;
    VkDeviceMemory m;
    if (!stagingBuffer(t->byteSize(), VK_BUFFER_USAGE_TRANSFER_DST_BIT, &b, &m)) return;
    VkBufferImageCopy region{};
    region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    region.imageExtent = {std::uint32_t(t->width()), std::uint32_t(t->height()), std::uint32_t(t->depth())};
    vkCmdCopyImageToBuffer(cb, vk(t)->image, VK_IMAGE_LAYOUT_GENERAL, b, 1, &region);
    barrier();
    readbacks.push_back({b, m, t->byteSize(), out});
  }
};

CommandList::CommandList(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
CommandList::~CommandList() = default;
std::size_t CommandList::passCount() const { return impl_->passes; }

void CommandList::dispatch(const std::string& kernel, std::span<const TexturePtr> textures, std::span<const float> P,
                           std::span<const float> table, Span span) {
  Device::Impl* dev = impl_->dev;
  VkPipeline pipeline;
  {
    std::lock_guard g(dev->lock);
    auto it = dev->pipelines.find(kernel);
    if (it == dev->pipelines.end()) return;
    pipeline = it->second;
  }
  if (textures.empty() || textures.size() > kSamplerSlots) return;
  for (const auto& t : textures)
    if (!t) return;
  VkCommandBuffer cb = impl_->cb;
  for (const auto& t : textures) impl_->prepare(t);

  // A 3D texture (a LUT) goes to the cube slot; its list position gets the placeholder.
  VkDescriptorImageInfo sampled[kSamplerSlots + 1];
  VkDescriptorImageInfo storage[kSamplerSlots];
  VkWriteDescriptorSet writes[2 * kSamplerSlots + 2];
  std::uint32_t n = 0;
  VkImageView cube = vk(dev->dummy3D)->view;
  for (std::uint32_t i = 0; i < kSamplerSlots; ++i) {
    const TexturePtr* t = i < textures.size() ? &textures[i] : &dev->dummy2D;
    if ((*t)->is3D()) {
      cube = vk(*t)->view;
      t = &dev->dummy2D;
    }
    sampled[i] = {dev->sampler, vk(*t)->view, VK_IMAGE_LAYOUT_GENERAL};
    storage[i] = {VK_NULL_HANDLE, vk(*t)->view, VK_IMAGE_LAYOUT_GENERAL};
  }
  sampled[kSamplerSlots] = {dev->sampler, cube, VK_IMAGE_LAYOUT_GENERAL};
  for (std::uint32_t i = 0; i < kSamplerSlots; ++i) {
    auto w = vkInit<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
    w.dstBinding = i;
    w.descriptorCount = 1;
    w.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    w.pImageInfo = &sampled[i];
    writes[n++] = w;
    w.dstBinding = kSamplerSlots + i;
    w.descriptorType = VK_DESCRIPTOR_TYPE_STORAGE_IMAGE;
    w.pImageInfo = &storage[i];
    writes[n++] = w;
  }
  auto cw = vkInit<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
  cw.dstBinding = kCubeBinding;
  cw.descriptorCount = 1;
  cw.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
  cw.pImageInfo = &sampled[kSamplerSlots];
  writes[n++] = cw;

  VkDescriptorBufferInfo tableInfo{dev->dummyBuffer, 0, VK_WHOLE_SIZE};
  if (!table.empty()) {
    tableInfo.buffer = impl_->filledBuffer(table.data(), table.size_bytes(), VK_BUFFER_USAGE_STORAGE_BUFFER_BIT);
    if (!tableInfo.buffer) return;
  }
  auto tw = vkInit<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
  tw.dstBinding = kTableBinding;
  tw.descriptorCount = 1;
  tw.descriptorType = VK_DESCRIPTOR_TYPE_STORAGE_BUFFER;
  tw.pBufferInfo = &tableInfo;
  writes[n++] = tw;

  float push[kPushBytes / 4] = {};
  std::copy_n(P.begin(), std::min<std::size_t>(P.size(), kPushBytes / 4), push);

  vkCmdBindPipeline(cb, VK_PIPELINE_BIND_POINT_COMPUTE, pipeline);
  dev->pushDescriptors(cb, VK_PIPELINE_BIND_POINT_COMPUTE, dev->pipelineLayout, 0, n, writes);
  vkCmdPushConstants(cb, dev->pipelineLayout, VK_SHADER_STAGE_COMPUTE_BIT, 0, kPushBytes, push);
  const TexturePtr& grid = textures.back();
  const std::uint32_t gx = kGroup * std::max(1, span.x), gy = kGroup * std::max(1, span.y);
  vkCmdDispatch(cb, (grid->width() + gx - 1) / gx, (grid->height() + gy - 1) / gy, 1);
  impl_->barrier();
  for (const auto& t : textures) impl_->keep.push_back(t);
  ++impl_->passes;
}

void CommandList::upload(const TexturePtr& texture, const void* bytes, std::size_t size) {
  if (!texture || size < texture->byteSize()) return;
  impl_->prepare(texture);
  VkBuffer b = impl_->filledBuffer(bytes, texture->byteSize(), VK_BUFFER_USAGE_TRANSFER_SRC_BIT);
  if (!b) return;
  VkBufferImageCopy region{};
  region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  region.imageExtent = {std::uint32_t(texture->width()), std::uint32_t(texture->height()), std::uint32_t(texture->depth())};
  vkCmdCopyBufferToImage(impl_->cb, b, vk(texture)->image, VK_IMAGE_LAYOUT_GENERAL, 1, &region);
  impl_->barrier();
  impl_->keep.push_back(texture);
}

void CommandList::read(const TexturePtr& texture, std::vector<std::uint8_t>* into) {
  if (texture && into) impl_->readback(texture, into);
}

void CommandList::copy(const TexturePtr& from, const TexturePtr& to) {
  if (!from || !to || from->width() != to->width() || from->height() != to->height() || from->format() != to->format() ||
      from->depth() != to->depth())
    return;
  impl_->prepare(from);
  impl_->prepare(to);
  VkImageCopy region{};
  region.srcSubresource = region.dstSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  region.extent = {std::uint32_t(from->width()), std::uint32_t(from->height()), std::uint32_t(from->depth())};
  vkCmdCopyImage(impl_->cb, vk(from)->image, VK_IMAGE_LAYOUT_GENERAL, vk(to)->image, VK_IMAGE_LAYOUT_GENERAL, 1, &region);
  impl_->barrier();
  impl_->keep.push_back(from);
  impl_->keep.push_back(to);
}

void CommandList::clear(const TexturePtr& texture, float r, float g, float b, float a) {
  if (!texture) return;
  impl_->prepare(texture);
  VkClearColorValue c{};
  c.float32[0] = r, c.float32[1] = g, c.float32[2] = b, c.float32[3] = a;
  VkImageSubresourceRange range{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  vkCmdClearColorImage(impl_->cb, vk(texture)->image, VK_IMAGE_LAYOUT_GENERAL, &c, 1, &range);
  impl_->barrier();
  impl_->keep.push_back(texture);
}

void CommandList::drawTriangles(const std::string& pipelineName, const TexturePtr& source, const TexturePtr& target,
                                std::span<const float> vertices) {
  Device::Impl* dev = impl_->dev;
  if (!source || !target || target->format() != Format::rgba16Float || vertices.size() < 12 || !dev->beginRendering)
    return;
  VkPipeline pipeline;
  {
    std::lock_guard g(dev->lock);
    auto it = dev->pipelines.find(pipelineName);
    if (it == dev->pipelines.end()) return;
    pipeline = it->second;
  }
  impl_->prepare(source);
  impl_->prepare(target);
  VkBuffer b = impl_->filledBuffer(vertices.data(), vertices.size_bytes(), VK_BUFFER_USAGE_VERTEX_BUFFER_BIT);
  if (!b) return;

  VkCommandBuffer cb = impl_->cb;
  auto color = vkInit<VkRenderingAttachmentInfoKHR>(VK_STRUCTURE_TYPE_RENDERING_ATTACHMENT_INFO_KHR);
  color.imageView = vk(target)->view;
  color.imageLayout = VK_IMAGE_LAYOUT_GENERAL;
  color.loadOp = VK_ATTACHMENT_LOAD_OP_LOAD;  // draw over what the target holds
  color.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
  auto info = vkInit<VkRenderingInfoKHR>(VK_STRUCTURE_TYPE_RENDERING_INFO_KHR);
  info.renderArea = {{0, 0}, {std::uint32_t(target->width()), std::uint32_t(target->height())}};
  info.layerCount = 1;
  info.colorAttachmentCount = 1;
  info.pColorAttachments = &color;
  dev->beginRendering(cb, &info);
  vkCmdBindPipeline(cb, VK_PIPELINE_BIND_POINT_GRAPHICS, pipeline);
  VkViewport viewport{0, 0, float(target->width()), float(target->height()), 0, 1};
  vkCmdSetViewport(cb, 0, 1, &viewport);
  vkCmdSetScissor(cb, 0, 1, &info.renderArea);
  VkDescriptorImageInfo image{dev->sampler, vk(source)->view, VK_IMAGE_LAYOUT_GENERAL};
  auto w = vkInit<VkWriteDescriptorSet>(VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET);
  w.dstBinding = 0;
  w.descriptorCount = 1;
  w.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
  w.pImageInfo = &image;
  dev->pushDescriptors(cb, VK_PIPELINE_BIND_POINT_GRAPHICS, dev->drawLayout, 0, 1, &w);
  VkDeviceSize offset = 0;
  vkCmdBindVertexBuffers(cb, 0, 1, &b, &offset);
  vkCmdDraw(cb, std::uint32_t(vertices.size() / 4 / 3 * 3), 1, 0, 0);
  dev->endRendering(cb);
  impl_->barrier();
  impl_->keep.push_back(source);
  impl_->keep.push_back(target);
  ++impl_->passes;
}

// ---------------------------------------------------------------------------------------------

Device::Device(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Device::~Device() = default;

DevicePreference Device::preferenceFromEnvironment() {
  const char* v = std::getenv("OMBRIK_GPU");
  return v && std::string(v) == "cpu" ? DevicePreference::cpu : DevicePreference::automatic;
}

std::unique_ptr<Device> Device::create(DevicePreference preference, std::string* error) {
  auto setError = [&](const std::string& e) {
    if (error) *error = e;
    return nullptr;
  };
  auto d = std::make_unique<Impl>();
  std::uint32_t loaderVersion = VK_API_VERSION_1_0;
  vkEnumerateInstanceVersion(&loaderVersion);
  if (loaderVersion < VK_API_VERSION_1_2) return setError("Vulkan 1.2 introuvable");

  auto app = vkInit<VkApplicationInfo>(VK_STRUCTURE_TYPE_APPLICATION_INFO);
  app.pApplicationName = "Ombrik";
  app.pEngineName = "Ombrik";
  app.apiVersion = VK_API_VERSION_1_2;
  auto ici = vkInit<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
  ici.pApplicationInfo = &app;
  if (VkResult r = vkCreateInstance(&ici, nullptr, &d->instance); r != VK_SUCCESS)
    return setError("Vulkan indisponible (" + vkError(r) + ")");

  std::uint32_t count = 0;
  vkEnumeratePhysicalDevices(d->instance, &count, nullptr);
  std::vector<VkPhysicalDevice> devices(count);
  vkEnumeratePhysicalDevices(d->instance, &count, devices.data());

  auto usable = [](VkPhysicalDevice pd, std::uint32_t* family) {
    std::uint32_t n = 0;
    vkEnumerateDeviceExtensionProperties(pd, nullptr, &n, nullptr);
    std::vector<VkExtensionProperties> exts(n);
    vkEnumerateDeviceExtensionProperties(pd, nullptr, &n, exts.data());
    bool push = std::any_of(exts.begin(), exts.end(), [](auto& e) { return std::strcmp(e.extensionName, VK_KHR_PUSH_DESCRIPTOR_EXTENSION_NAME) == 0; });
    VkPhysicalDeviceFeatures f;
    vkGetPhysicalDeviceFeatures(pd, &f);
    VkPhysicalDeviceProperties props;
    vkGetPhysicalDeviceProperties(pd, &props);
    if (!push || !f.shaderStorageImageWriteWithoutFormat || props.apiVersion < VK_API_VERSION_1_2) return false;
    std::uint32_t qn = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(pd, &qn, nullptr);
    std::vector<VkQueueFamilyProperties> qs(qn);
    vkGetPhysicalDeviceQueueFamilyProperties(pd, &qn, qs.data());
    for (std::uint32_t i = 0; i < qn; ++i)
      if ((qs[i].queueFlags & VK_QUEUE_COMPUTE_BIT) && (qs[i].queueFlags & VK_QUEUE_GRAPHICS_BIT)) {
        *family = i;
        return true;
      }
    return false;
  };
  auto rank = [&](VkPhysicalDevice pd) {
    VkPhysicalDeviceProperties p;
    vkGetPhysicalDeviceProperties(pd, &p);
    if (preference == DevicePreference::cpu) return p.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU ? 1 : -1;
    switch (p.deviceType) {
      case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU: return 4;
      case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU: return 3;
      case VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU: return 2;
      default: return 1;
    }
  };
  int best = -1;
  for (VkPhysicalDevice pd : devices) {
    std::uint32_t family;
    if (!usable(pd, &family)) continue;
    if (int r = rank(pd); r > best) {
      best = r;
      d->physical = pd;
      d->queueFamily = family;
    }
  }
  if (!d->physical)
    return setError(preference == DevicePreference::cpu ? "pilote Vulkan CPU (lavapipe) introuvable"
                                                          : "aucun périphérique Vulkan utilisable");

  VkPhysicalDeviceProperties props;
  vkGetPhysicalDeviceProperties(d->physical, &props);
  d->info.name = props.deviceName;
  d->info.cpu = props.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU;
  d->info.apiVersion = std::to_string(VK_API_VERSION_MAJOR(props.apiVersion)) + "." +
                       std::to_string(VK_API_VERSION_MINOR(props.apiVersion)) + "." +
                       std::to_string(VK_API_VERSION_PATCH(props.apiVersion));
  vkGetPhysicalDeviceMemoryProperties(d->physical, &d->memory);

  float priority = 1.0f;
  auto qci = vkInit<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO);
  qci.queueFamilyIndex = d->queueFamily;
  qci.queueCount = 1;
  qci.pQueuePriorities = &priority;
  VkPhysicalDeviceFeatures features{};
  features.shaderStorageImageWriteWithoutFormat = VK_TRUE;
  std::vector<const char*> extensions = {VK_KHR_PUSH_DESCRIPTOR_EXTENSION_NAME};
  // Triangle passes (mesh warp) draw without render-pass objects when the device allows it.
  bool dynamicRendering = false;
  {
    std::uint32_t n = 0;
    vkEnumerateDeviceExtensionProperties(d->physical, nullptr, &n, nullptr);
    std::vector<VkExtensionProperties> exts(n);
    vkEnumerateDeviceExtensionProperties(d->physical, nullptr, &n, exts.data());
    for (const auto& e : exts)
      if (std::strcmp(e.extensionName, VK_KHR_DYNAMIC_RENDERING_EXTENSION_NAME) == 0) dynamicRendering = true;
  }
  auto dynamicFeature = vkInit<VkPhysicalDeviceDynamicRenderingFeaturesKHR>(
      VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_DYNAMIC_RENDERING_FEATURES_KHR);
  dynamicFeature.dynamicRendering = VK_TRUE;
  auto dci = vkInit<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO);
  if (dynamicRendering) {  // its dependencies are core in Vulkan 1.2
    extensions.push_back(VK_KHR_DYNAMIC_RENDERING_EXTENSION_NAME);
    dci.pNext = &dynamicFeature;
  }
  dci.queueCreateInfoCount = 1;
  dci.pQueueCreateInfos = &qci;
  dci.enabledExtensionCount = std::uint32_t(extensions.size());
  dci.ppEnabledExtensionNames = extensions.data();
  dci.pEnabledFeatures = &features;
  if (VkResult r = vkCreateDevice(d->physical, &dci, nullptr, &d->device); r != VK_SUCCESS)
    return setError("création du périphérique Vulkan impossible (" + vkError(r) + ")");
  vkGetDeviceQueue(d->device, d->queueFamily, 0, &d->queue);
  d->pushDescriptors = reinterpret_cast<PFN_vkCmdPushDescriptorSetKHR>(vkGetDeviceProcAddr(d->device, "vkCmdPushDescriptorSetKHR"));
  if (!d->pushDescriptors) return setError("VK_KHR_push_descriptor indisponible");
  if (dynamicRendering) {
    d->beginRendering = reinterpret_cast<PFN_vkCmdBeginRenderingKHR>(vkGetDeviceProcAddr(d->device, "vkCmdBeginRenderingKHR"));
    d->endRendering = reinterpret_cast<PFN_vkCmdEndRenderingKHR>(vkGetDeviceProcAddr(d->device, "vkCmdEndRenderingKHR"));
  }

  auto pci = vkInit<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
  pci.flags = VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT;
  pci.queueFamilyIndex = d->queueFamily;
  vkCreateCommandPool(d->device, &pci, nullptr, &d->commandPool);

  std::vector<VkDescriptorSetLayoutBinding> bindings;
  for (std::uint32_t i = 0; i < kSamplerSlots; ++i) {
    bindings.push_back({i, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr});
    bindings.push_back({kSamplerSlots + i, VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr});
  }
  bindings.push_back({kTableBinding, VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr});
  bindings.push_back({kCubeBinding, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1, VK_SHADER_STAGE_COMPUTE_BIT, nullptr});
  auto sli = vkInit<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
  sli.flags = VK_DESCRIPTOR_SET_LAYOUT_CREATE_PUSH_DESCRIPTOR_BIT_KHR;
  sli.bindingCount = std::uint32_t(bindings.size());
  sli.pBindings = bindings.data();
  vkCreateDescriptorSetLayout(d->device, &sli, nullptr, &d->setLayout);
  VkPushConstantRange range{VK_SHADER_STAGE_COMPUTE_BIT, 0, kPushBytes};
  auto pli = vkInit<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
  pli.setLayoutCount = 1;
  pli.pSetLayouts = &d->setLayout;
  pli.pushConstantRangeCount = 1;
  pli.pPushConstantRanges = &range;
  vkCreatePipelineLayout(d->device, &pli, nullptr, &d->pipelineLayout);

  {  // triangle passes: the source at binding 0 for the fragment stage
    VkDescriptorSetLayoutBinding b{0, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 1, VK_SHADER_STAGE_FRAGMENT_BIT, nullptr};
    auto dl = vkInit<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
    dl.flags = VK_DESCRIPTOR_SET_LAYOUT_CREATE_PUSH_DESCRIPTOR_BIT_KHR;
    dl.bindingCount = 1;
    dl.pBindings = &b;
    vkCreateDescriptorSetLayout(d->device, &dl, nullptr, &d->drawSetLayout);
    auto pl = vkInit<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
    pl.setLayoutCount = 1;
    pl.pSetLayouts = &d->drawSetLayout;
    vkCreatePipelineLayout(d->device, &pl, nullptr, &d->drawLayout);
  }

  auto si = vkInit<VkSamplerCreateInfo>(VK_STRUCTURE_TYPE_SAMPLER_CREATE_INFO);
  si.magFilter = si.minFilter = VK_FILTER_LINEAR;
  si.mipmapMode = VK_SAMPLER_MIPMAP_MODE_NEAREST;
  si.addressModeU = si.addressModeV = si.addressModeW = VK_SAMPLER_ADDRESS_MODE_CLAMP_TO_EDGE;
  si.maxLod = 0;
  vkCreateSampler(d->device, &si, nullptr, &d->sampler);

  d->dummy2D = d->makeTexture(1, 1, 1, Format::rgba16Float, false);
  d->dummy3D = d->makeTexture(2, 2, 2, Format::rgba16Float, true);
  d->makeBuffer(16, VK_BUFFER_USAGE_STORAGE_BUFFER_BIT, &d->dummyBuffer, &d->dummyBufferMemory);
  if (!d->dummy2D || !d->dummy3D || !d->dummyBuffer) return setError("textures de base impossibles à créer");
  d->liveTextures -= 2;  // the placeholders are not the engine's textures

  std::unique_ptr<Device> device(new Device(std::move(d)));
  {
    auto init = device->begin();  // move the placeholders into their layout once
    if (!init) return setError("tampon de commandes indisponible");
    init->impl_->prepare(device->impl_->dummy2D);
    init->impl_->prepare(device->impl_->dummy3D);
    if (!device->submitAndWait(*init)) return setError(device->failure());
  }
  return device;
}

const DeviceInfo& Device::info() const { return impl_->info; }
bool Device::failed() const { return impl_->failed; }
const std::string& Device::failure() const { return impl_->failure; }
void Device::reportFailure(const std::string& why) {
  impl_->failed = true;
  impl_->failure = why;
}
std::size_t Device::liveTextureCount() const { return impl_->liveTextures.load(); }

TexturePtr Device::createTexture(int width, int height, Format format) {
  return impl_->makeTexture(width, height, 1, format, false);
}

TexturePtr Device::createTexture3D(int size) { return impl_->makeTexture(size, size, size, Format::rgba16Float, true); }

bool Device::createPipeline(const std::string& name, const std::vector<std::uint32_t>& spirv, std::string* error) {
  auto mi = vkInit<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
  mi.codeSize = spirv.size() * 4;
  mi.pCode = spirv.data();
  VkShaderModule module;
  if (VkResult r = vkCreateShaderModule(impl_->device, &mi, nullptr, &module); r != VK_SUCCESS) {
    if (error) *error = vkError(r);
    return false;
  }
  auto ci = vkInit<VkComputePipelineCreateInfo>(VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO);
  ci.stage = vkInit<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO);
  ci.stage.stage = VK_SHADER_STAGE_COMPUTE_BIT;
  ci.stage.module = module;
  ci.stage.pName = "main";
  ci.layout = impl_->pipelineLayout;
  VkPipeline pipeline;
  VkResult r = vkCreateComputePipelines(impl_->device, VK_NULL_HANDLE, 1, &ci, nullptr, &pipeline);
  vkDestroyShaderModule(impl_->device, module, nullptr);
  if (r != VK_SUCCESS) {
    if (error) *error = vkError(r);
    return false;
  }
  impl_->store(name, pipeline);
  return true;
}

bool Device::createTrianglePipeline(const std::string& name, const std::vector<std::uint32_t>& vertexSpirv,
                                    const std::vector<std::uint32_t>& fragmentSpirv, std::string* error) {
  if (!impl_->beginRendering) {
    if (error) *error = "rendu dynamique indisponible";
    return false;
  }
  VkShaderModule modules[2] = {};
  const std::vector<std::uint32_t>* code[2] = {&vertexSpirv, &fragmentSpirv};
  for (int i = 0; i < 2; ++i) {
    auto mi = vkInit<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
    mi.codeSize = code[i]->size() * 4;
    mi.pCode = code[i]->data();
    if (VkResult r = vkCreateShaderModule(impl_->device, &mi, nullptr, &modules[i]); r != VK_SUCCESS) {
      if (modules[0]) vkDestroyShaderModule(impl_->device, modules[0], nullptr);
      if (error) *error = vkError(r);
      return false;
    }
  }
  VkPipelineShaderStageCreateInfo stages[2];
  for (int i = 0; i < 2; ++i) {
    stages[i] = vkInit<VkPipelineShaderStageCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO);
    stages[i].stage = i == 0 ? VK_SHADER_STAGE_VERTEX_BIT : VK_SHADER_STAGE_FRAGMENT_BIT;
    stages[i].module = modules[i];
    stages[i].pName = "main";
  }
  VkVertexInputBindingDescription binding{0, 4 * sizeof(float), VK_VERTEX_INPUT_RATE_VERTEX};
  VkVertexInputAttributeDescription attrs[2] = {{0, 0, VK_FORMAT_R32G32_SFLOAT, 0},
                                                {1, 0, VK_FORMAT_R32G32_SFLOAT, 2 * sizeof(float)}};
  auto vi = vkInit<VkPipelineVertexInputStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO);
  vi.vertexBindingDescriptionCount = 1;
  vi.pVertexBindingDescriptions = &binding;
  vi.vertexAttributeDescriptionCount = 2;
  vi.pVertexAttributeDescriptions = attrs;
  auto ia = vkInit<VkPipelineInputAssemblyStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO);
  ia.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;
  auto vp = vkInit<VkPipelineViewportStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO);
  vp.viewportCount = 1;
  vp.scissorCount = 1;
  auto rs = vkInit<VkPipelineRasterizationStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO);
  rs.polygonMode = VK_POLYGON_MODE_FILL;
  rs.cullMode = VK_CULL_MODE_NONE;
  rs.lineWidth = 1.0f;
  auto ms = vkInit<VkPipelineMultisampleStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO);
  ms.rasterizationSamples = VK_SAMPLE_COUNT_1_BIT;
  VkPipelineColorBlendAttachmentState blend{};
  blend.colorWriteMask = VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT | VK_COLOR_COMPONENT_B_BIT | VK_COLOR_COMPONENT_A_BIT;
  auto cb = vkInit<VkPipelineColorBlendStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO);
  cb.attachmentCount = 1;
  cb.pAttachments = &blend;
  VkDynamicState dyn[] = {VK_DYNAMIC_STATE_VIEWPORT, VK_DYNAMIC_STATE_SCISSOR};
  auto ds = vkInit<VkPipelineDynamicStateCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_DYNAMIC_STATE_CREATE_INFO);
  ds.dynamicStateCount = 2;
  ds.pDynamicStates = dyn;
  const VkFormat format = VK_FORMAT_R16G16B16A16_SFLOAT;
  auto rendering = vkInit<VkPipelineRenderingCreateInfoKHR>(VK_STRUCTURE_TYPE_PIPELINE_RENDERING_CREATE_INFO_KHR);
  rendering.colorAttachmentCount = 1;
  rendering.pColorAttachmentFormats = &format;
  auto gi = vkInit<VkGraphicsPipelineCreateInfo>(VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO);
  gi.pNext = &rendering;
  gi.stageCount = 2;
  gi.pStages = stages;
  gi.pVertexInputState = &vi;
  gi.pInputAssemblyState = &ia;
  gi.pViewportState = &vp;
  gi.pRasterizationState = &rs;
  gi.pMultisampleState = &ms;
  gi.pColorBlendState = &cb;
  gi.pDynamicState = &ds;
  gi.layout = impl_->drawLayout;
  VkPipeline pipeline;
  VkResult r = vkCreateGraphicsPipelines(impl_->device, VK_NULL_HANDLE, 1, &gi, nullptr, &pipeline);
  for (auto m : modules) vkDestroyShaderModule(impl_->device, m, nullptr);
  if (r != VK_SUCCESS) {
    if (error) *error = vkError(r);
    return false;
  }
  impl_->store(name, pipeline);
  return true;
}

bool Device::hasPipeline(const std::string& name) const {
  std::lock_guard g(impl_->lock);
  return impl_->pipelines.count(name) > 0;
}

std::size_t Device::pipelineCount() const {
  std::lock_guard g(impl_->lock);
  return impl_->pipelines.size();
}

std::unique_ptr<CommandList> Device::begin() {
  if (impl_->failed) return nullptr;
  auto ci = std::make_unique<CommandList::Impl>();
  ci->dev = impl_.get();
  auto ai = vkInit<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
  ai.commandPool = impl_->commandPool;
  ai.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
  ai.commandBufferCount = 1;
  {
    std::lock_guard g(impl_->lock);
    if (VkResult r = vkAllocateCommandBuffers(impl_->device, &ai, &ci->cb); r != VK_SUCCESS) {
      impl_->fail(r);
      ci->cb = VK_NULL_HANDLE;
      return nullptr;
    }
  }
  auto bi = vkInit<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
  bi.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
  vkBeginCommandBuffer(ci->cb, &bi);
  return std::unique_ptr<CommandList>(new CommandList(std::move(ci)));
}

bool Device::submitAndWait(CommandList& commands) {
  CommandList::Impl& c = *commands.impl_;
  if (!c.cb) return false;
  vkEndCommandBuffer(c.cb);
  auto fi = vkInit<VkFenceCreateInfo>(VK_STRUCTURE_TYPE_FENCE_CREATE_INFO);
  VkFence fence;
  vkCreateFence(impl_->device, &fi, nullptr, &fence);
  auto si = vkInit<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
  si.commandBufferCount = 1;
  si.pCommandBuffers = &c.cb;
  VkResult r;
  {
    std::lock_guard g(impl_->lock);
    r = vkQueueSubmit(impl_->queue, 1, &si, fence);
  }
  if (r == VK_SUCCESS) r = vkWaitForFences(impl_->device, 1, &fence, VK_TRUE, UINT64_MAX);
  vkDestroyFence(impl_->device, fence, nullptr);
  if (r != VK_SUCCESS) {
    impl_->fail(r);
    return false;
  }
  for (auto& rb : c.readbacks) {
    void* p;
    if (vkMapMemory(impl_->device, rb.memory, 0, VK_WHOLE_SIZE, 0, &p) != VK_SUCCESS) continue;
    rb.out->assign(static_cast<std::uint8_t*>(p), static_cast<std::uint8_t*>(p) + rb.size);
    vkUnmapMemory(impl_->device, rb.memory);
  }
  c.readbacks.clear();
  c.keep.clear();
  return true;
}

bool Device::write(const TexturePtr& texture, const void* bytes, std::size_t size) {
  auto c = begin();
  if (!c) return false;
  c->upload(texture, bytes, size);
  return submitAndWait(*c);
}

std::vector<std::uint8_t> Device::read(const TexturePtr& texture) {
  std::vector<std::uint8_t> out;
  read(texture, out);
  return out;
}

bool Device::read(const TexturePtr& texture, std::vector<std::uint8_t>& into) {
  if (!texture) return false;
  auto c = begin();
  if (!c) return false;
  c->impl_->readback(texture, &into);
  if (submitAndWait(*c)) return true;
  into.clear();
  return false;
}

}  // namespace ombrik::gpu
