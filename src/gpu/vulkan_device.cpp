// The Vulkan implementation of the device layer: the only code that includes Vulkan.
//
// Every texture lives in the GENERAL layout, so a pass can sample one texture and write another
// without layout transitions; a full memory barrier goes before an operation that touches a
// texture an earlier one touched since the last barrier, so passes on textures of their own may
// overlap. Descriptors are pushed per pass (VK_KHR_push_descriptor): no pools to manage.
#include "gpu/vulkan_impl.h"

namespace ombrik::gpu {

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

  for (const auto& t : textures)
    if (std::find(impl_->touched.begin(), impl_->touched.end(), t.get()) != impl_->touched.end()) {
      impl_->barrier();
      break;
    }
  vkCmdBindPipeline(cb, VK_PIPELINE_BIND_POINT_COMPUTE, pipeline);
  dev->pushDescriptors(cb, VK_PIPELINE_BIND_POINT_COMPUTE, dev->pipelineLayout, 0, n, writes);
  vkCmdPushConstants(cb, dev->pipelineLayout, VK_SHADER_STAGE_COMPUTE_BIT, 0, kPushBytes, push);
  const TexturePtr& grid = textures.back();
  const std::uint32_t gx = kGroup * std::max(1, span.x), gy = kGroup * std::max(1, span.y);
  vkCmdDispatch(cb, (grid->width() + gx - 1) / gx, (grid->height() + gy - 1) / gy, 1);
  for (const auto& t : textures) {
    impl_->touched.push_back(t.get());
    impl_->keep.push_back(t);
  }
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
  impl_->before({texture.get()});
  vkCmdCopyBufferToImage(impl_->cb, b, vk(texture)->image, VK_IMAGE_LAYOUT_GENERAL, 1, &region);
  impl_->after({texture.get()});
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
  impl_->before({from.get(), to.get()});
  vkCmdCopyImage(impl_->cb, vk(from)->image, VK_IMAGE_LAYOUT_GENERAL, vk(to)->image, VK_IMAGE_LAYOUT_GENERAL, 1, &region);
  impl_->after({from.get(), to.get()});
  impl_->keep.push_back(from);
  impl_->keep.push_back(to);
}

void CommandList::clear(const TexturePtr& texture, float r, float g, float b, float a) {
  if (!texture) return;
  impl_->prepare(texture);
  VkClearColorValue c{};
  c.float32[0] = r, c.float32[1] = g, c.float32[2] = b, c.float32[3] = a;
  VkImageSubresourceRange range{VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  impl_->before({texture.get()});
  vkCmdClearColorImage(impl_->cb, vk(texture)->image, VK_IMAGE_LAYOUT_GENERAL, &c, 1, &range);
  impl_->after({texture.get()});
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
  impl_->before({source.get(), target.get()});
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
  impl_->after({source.get(), target.get()});
  impl_->keep.push_back(source);
  impl_->keep.push_back(target);
  ++impl_->passes;
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
