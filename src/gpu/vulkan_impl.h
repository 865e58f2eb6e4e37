#pragma once
// The Vulkan device layer's private parts, shared by its two files: vulkan_device.cpp (textures,
// passes, submission) and vulkan_device_create.cpp (choosing and opening a device).
#include <vulkan/vulkan.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "gpu/device.h"

namespace ombrik::gpu {


inline constexpr std::uint32_t kSamplerSlots = 8;   // bindings 0..7 sampled, 8..15 storage
inline constexpr std::uint32_t kTableBinding = 16;
inline constexpr std::uint32_t kCubeBinding = 17;
inline constexpr std::uint32_t kPushBytes = 128;    // 32 floats
inline constexpr std::uint32_t kGroup = 16;          // threads per group side, as in the kernels' prelude

// A Vulkan info record with every field zero but its type.
template <class T>
T vkInit(VkStructureType type) {
  T v{};
  v.sType = type;
  return v;
}

inline std::string vkError(VkResult r) {
  switch (r) {
    case VK_ERROR_DEVICE_LOST: return "périphérique GPU perdu";
    case VK_ERROR_OUT_OF_DEVICE_MEMORY: return "mémoire GPU épuisée";
    case VK_ERROR_OUT_OF_HOST_MEMORY: return "mémoire épuisée";
    default: return "erreur Vulkan " + std::to_string(int(r));
  }
}

inline VkFormat vkFormat(Format f) {
  return f == Format::rgba16Float ? VK_FORMAT_R16G16B16A16_SFLOAT : VK_FORMAT_R8G8B8A8_UNORM;
}

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
  // Enough for a few 4K frames; past it the oldest go, so sizes no longer used don't stay.
  static constexpr VkDeviceSize kSpareBytes = 192ull << 20;
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
    std::vector<Staging> out;
    {
      std::lock_guard g(spareLock);
      if (b.size > kSpareBytes) {
        out.push_back(b);
      } else {
        while (spareBytes + b.size > kSpareBytes) {
          out.push_back(spare.front());
          spareBytes -= spare.front().size;
          spare.erase(spare.begin());
        }
        spare.push_back(b);
        spareBytes += b.size;
      }
    }
    for (const auto& o : out) {
      vkDestroyBuffer(device, o.buffer, nullptr);
      vkFreeMemory(device, o.memory, nullptr);
    }
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

inline VulkanTexture* vk(const TexturePtr& t) { return static_cast<VulkanTexture*>(t.get()); }

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

  // Textures touched since the last barrier. An operation waits (a full memory barrier) only
  // when it touches one of them, reading or writing: passes on textures of their own may overlap.
  std::vector<const Texture*> touched;
  void before(std::initializer_list<const Texture*> textures) {
    for (const Texture* t : textures)
      if (std::find(touched.begin(), touched.end(), t) != touched.end()) return barrier();
  }
  void after(std::initializer_list<const Texture*> textures) { touched.insert(touched.end(), textures); }

  void barrier() {
    touched.clear();
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
    before({t.get()});
    vkCmdCopyImageToBuffer(cb, vk(t)->image, VK_IMAGE_LAYOUT_GENERAL, b, 1, &region);
    barrier();  // and the host reads the buffer once the list is done
    readbacks.push_back({b, m, t->byteSize(), out});
  }
};

}  // namespace ombrik::gpu
