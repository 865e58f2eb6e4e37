// Choosing and opening the Vulkan device: a GPU when there is one, else the CPU driver; the
// shared pipeline layout, sampler and placeholders every pass binds.
#include "gpu/vulkan_impl.h"

namespace ombrik::gpu {

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

}  // namespace ombrik::gpu
