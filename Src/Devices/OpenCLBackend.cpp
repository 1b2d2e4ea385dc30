#include "Devices/OpenCLBackend.h"

#include <CL/cl_gl.h>

#include <boost/make_shared.hpp>

#include "Devices/DeviceIdentity.h"
#include "Memory/MemoryManagers.h"
#include "Memory/OpenCLMemoryPolicies.h"
#include "Queues/OpenCLQueues.h"
#include "Runtime/FailureReport.h"
#include "Runtime/ResultMapping.h"

namespace LM {

namespace {

// Single-precision literals and relaxed math: the kernels work in float and do not depend on IEEE
// corner cases, and both options let the compiler use the device's fast paths.
constexpr char kBuildOptions[] = "-cl-single-precision-constant -cl-fast-relaxed-math";

// The context property that names the display of the hidden OpenGL context.
#if defined(_WIN32)
constexpr cl_context_properties kOpenGLDisplayProperty = CL_WGL_HDC_KHR;
#else
constexpr cl_context_properties kOpenGLDisplayProperty = CL_EGL_DISPLAY_KHR;
#endif

// A text property, or false when it cannot be read.
bool ReadText(cl_device_id device, cl_device_info what, std::string& text) {
  std::size_t size = 0;
  if (clGetDeviceInfo(device, what, 0, nullptr, &size) != CL_SUCCESS || size == 0) return false;
  std::vector<char> buffer(size + 1, '\0');
  if (clGetDeviceInfo(device, what, size, buffer.data(), nullptr) != CL_SUCCESS) return false;
  text.assign(buffer.data());
  return true;
}

template <class T>
bool ReadValue(cl_device_id device, cl_device_info what, T& value) {
  return clGetDeviceInfo(device, what, sizeof value, &value, nullptr) == CL_SUCCESS;
}

template <class T>
cl_int SetArgument(cl_kernel kernel, cl_uint index, const T& value) {
  return clSetKernelArg(kernel, index, sizeof value, &value);
}

}  // namespace

OpenCLBackend::~OpenCLBackend() {
  for (const auto& entry : kernels_) {
    const cl_int result = clReleaseKernel(entry.second);
    static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Kernel release failure: "));
  }
  if (context_ == nullptr) return;
  const cl_int result = clReleaseContext(context_);
  static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Context release failure: "));
}

std::vector<std::pair<cl_platform_id, cl_device_id>> OpenCLBackend::EnumerateDevices(bool includeCPUDevices) {
  std::vector<std::pair<cl_platform_id, cl_device_id>> found;
  cl_uint platformCount = 0;
  if (clGetPlatformIDs(0, nullptr, &platformCount) != CL_SUCCESS || platformCount == 0) return found;
  std::vector<cl_platform_id> platforms(platformCount);
  if (clGetPlatformIDs(platformCount, platforms.data(), nullptr) != CL_SUCCESS) return found;
  const cl_device_type types =
      includeCPUDevices ? (CL_DEVICE_TYPE_GPU | CL_DEVICE_TYPE_CPU) : CL_DEVICE_TYPE_GPU;
  for (cl_platform_id platform : platforms) {
    cl_uint deviceCount = 0;
    if (clGetDeviceIDs(platform, types, 0, nullptr, &deviceCount) != CL_SUCCESS || deviceCount == 0) continue;
    std::vector<cl_device_id> devices(deviceCount);
    if (clGetDeviceIDs(platform, types, deviceCount, devices.data(), nullptr) != CL_SUCCESS) continue;
    for (cl_device_id device : devices) found.emplace_back(platform, device);
  }
  return found;
}

bool OpenCLBackend::ReadIdentity(cl_device_id device, OpenCLDeviceIdentity& identity) {
  cl_bool available = CL_FALSE;
  cl_bool images = CL_FALSE;
  cl_device_type type = 0;
  cl_ulong memory = 0;
  std::string vendor, deviceVersion, driverVersion;
  if (!ReadValue(device, CL_DEVICE_AVAILABLE, available) || available != CL_TRUE ||
      !ReadValue(device, CL_DEVICE_IMAGE_SUPPORT, images) || images != CL_TRUE ||
      !ReadValue(device, CL_DEVICE_TYPE, type) || !ReadValue(device, CL_DEVICE_GLOBAL_MEM_SIZE, memory) ||
      !ReadText(device, CL_DEVICE_NAME, identity.name) || !ReadText(device, CL_DEVICE_VENDOR, vendor) ||
      !ReadText(device, CL_DEVICE_VERSION, deviceVersion) ||
      !ReadText(device, CL_DRIVER_VERSION, driverVersion)) {
    return false;
  }
  identity.vendor = ClassifyVendor(vendor);
  identity.totalMemory = memory;
  identity.computeCapability = ParseVersionText(deviceVersion);
  identity.driverVersion = ParseVersionText(driverVersion);
  return true;
}

cl_program OpenCLBackend::BuildProgram(cl_context context, cl_device_id device, const std::string& text) {
  const char* source = text.c_str();
  cl_int error = CL_SUCCESS;
  cl_program program = clCreateProgramWithSource(context, 1, &source, nullptr, &error);
  if (error != CL_SUCCESS || program == nullptr) {
    if (program != nullptr) clReleaseProgram(program);
    return nullptr;
  }
  if (clBuildProgram(program, 1, &device, kBuildOptions, nullptr, nullptr) != CL_SUCCESS) {
    // A failed build is answered with null and no message; the program must not outlive it.
    clReleaseProgram(program);
    return nullptr;
  }
  return program;
}

bool OpenCLBackend::CreateContext(const OffscreenGLContext& openGL, bool headless) {
  if (context_ != nullptr) return true;
  cl_int result = CL_SUCCESS;
  cl_context context = nullptr;
  if (!headless && openGL.renderingContext != nullptr) {
    const cl_context_properties sharedProperties[] = {
        CL_CONTEXT_PLATFORM,
        reinterpret_cast<cl_context_properties>(platform_),
        CL_GL_CONTEXT_KHR,
        reinterpret_cast<cl_context_properties>(openGL.renderingContext),
        kOpenGLDisplayProperty,
        reinterpret_cast<cl_context_properties>(openGL.deviceContext),
        0};
    // Sharing is tried first and may fail (a runtime without OpenGL interoperation): then without.
    context = clCreateContext(sharedProperties, 1, &device_, nullptr, nullptr, &result);
  }
  if (context == nullptr) {
    const cl_context_properties properties[] = {CL_CONTEXT_PLATFORM,
                                                reinterpret_cast<cl_context_properties>(platform_), 0};
    context = clCreateContext(properties, 1, &device_, nullptr, nullptr, &result);
  }
  if (!LM_OPENCL_SUCCEEDED(result, "Context creation failure: ")) return false;
  context_ = context;
  return true;
}

bool OpenCLBackend::Finish(CommandQueue* queue) {
  if (queue == nullptr) return false;
  const cl_int result = clFinish(static_cast<cl_command_queue>(queue->GetNativeQueue()));
  return LM_OPENCL_SUCCEEDED(result, "Queue finish failure: ");
}

boost::shared_ptr<CommandQueue> OpenCLBackend::CreateCommandQueue(bool profile) {
  const auto queue = boost::make_shared<OpenCLCommandQueue>(context_, device_, profile);
  return queue->Valid() ? queue : boost::shared_ptr<CommandQueue>();
}

boost::shared_ptr<PooledMemoryManager> OpenCLBackend::CreateMemoryManager(
    bool deviceMemory, const char* name, const PoolFigures& figures, unsigned int ordinal,
    const boost::weak_ptr<CommandQueue>& queue) {
  return deviceMemory ? CreateOpenCLDeviceMemoryManager(context_, name, figures.frameCacheLimit,
                                                        figures.lowMark, figures.highMark, ordinal, queue)
                      : CreateOpenCLHostMemoryManager(name, figures.frameCacheLimit, figures.lowMark,
                                                      figures.highMark, ordinal, queue);
}

void* OpenCLBackend::LoadModule(const std::string&, const std::string& image) {
  try {
    return BuildProgram(context_, device_, image);
  } catch (...) {
    return nullptr;
  }
}

bool OpenCLBackend::UnloadModule(void* module) {
  if (module == nullptr) return true;
  const cl_program program = static_cast<cl_program>(module);
  for (auto entry = kernels_.lower_bound({program, std::string()});
       entry != kernels_.end() && entry->first.first == program; entry = kernels_.erase(entry)) {
    const cl_int result = clReleaseKernel(entry->second);
    static_cast<void>(LM_OPENCL_SUCCEEDED(result, "Kernel release failure: "));
  }
  const cl_int result = clReleaseProgram(program);
  return LM_OPENCL_SUCCEEDED(result, "Program release failure: ");
}

void* OpenCLBackend::FindKernel(void* module, const char* name) {
  if (module == nullptr || name == nullptr) return nullptr;
  const cl_program program = static_cast<cl_program>(module);
  std::pair<cl_program, std::string> key(program, name);
  const auto found = kernels_.find(key);
  if (found != kernels_.end()) return found->second;
  cl_int result = CL_SUCCESS;
  cl_kernel kernel = clCreateKernel(program, name, &result);
  if (result != CL_SUCCESS || kernel == nullptr) return nullptr;
  try {
    kernels_.emplace(std::move(key), kernel);
  } catch (...) {
    clReleaseKernel(kernel);  // not recorded, so not handed out either
    return nullptr;
  }
  return kernel;
}

// One clSetKernelArg per value at the next index, by its size; buffers and images as their cl_mem.
int OpenCLBackend::SetKernelArguments(void* kernel, const KernelArgument* arguments, std::size_t count) {
  const cl_kernel handle = static_cast<cl_kernel>(kernel);
  for (std::size_t i = 0; i < count; ++i) {
    const KernelArgument& argument = arguments[i];
    const cl_uint index = static_cast<cl_uint>(i);
    cl_int result = CL_SUCCESS;
    switch (argument.kind) {
      case KernelParameterKind::kDevicePointer:
      case KernelParameterKind::kImage:
        result = SetArgument(handle, index, static_cast<cl_mem>(const_cast<void*>(argument.pointer)));
        break;
      case KernelParameterKind::kInt:
        result = SetArgument(handle, index, static_cast<cl_int>(argument.integer));
        break;
      case KernelParameterKind::kFloat:
        result = SetArgument(handle, index, static_cast<cl_float>(argument.real));
        break;
      case KernelParameterKind::kFloat4: {
        cl_float4 vector;
        for (int c = 0; c < 4; ++c) vector.s[c] = argument.vector[c];
        result = SetArgument(handle, index, vector);
        break;
      }
    }
    if (result != CL_SUCCESS) return MapOpenCLResult(result);
  }
  return kResultSuccess;
}

// OpenCL kernels state their local memory themselves.
int OpenCLBackend::PreferSharedMemory(void*) {
  return kResultSuccess;
}

// OpenCL has no texture references: its kernels sample images (CreateImage).
void* OpenCLBackend::PrepareTextureReference(void*, const char*, CUaddress_mode, CUfilter_mode, PixelFormat) {
  return nullptr;
}
int OpenCLBackend::BindTextureReference(void*, const TextureBinding&) {
  return kResultFailed;
}

int OpenCLBackend::CreateImage(PixelFormat format, int width, int height, boost::shared_ptr<void>* holder) {
  if (width <= 0 || height <= 0) return kResultFailed;
  const cl_image_format imageFormat = OpenCLImageFormatFor(format);
  cl_int result = CL_SUCCESS;
  cl_mem image = clCreateImage2D(context_, CL_MEM_READ_WRITE, &imageFormat, static_cast<std::size_t>(width),
                                 static_cast<std::size_t>(height), 0, nullptr, &result);
  if (result != CL_SUCCESS) return MapOpenCLResult(result);
  // Work already queued on the image keeps it alive past the last reference (runtime reference counting).
  holder->reset(image, [](void* held) { clReleaseMemObject(static_cast<cl_mem>(held)); });
  return kResultSuccess;
}

// OpenCL copies read any host memory; there is nothing to lock.
bool OpenCLBackend::PinHostMemory(void*, std::size_t) {
  return false;
}
void OpenCLBackend::UnpinHostMemory(void*) {}

// Every cl_mem knows its type and size; an image also its extent and texel size.
MemoryObjectInfo OpenCLBackend::DescribeMemory(const void* object) {
  MemoryObjectInfo info;
  cl_mem memory = static_cast<cl_mem>(const_cast<void*>(object));
  cl_mem_object_type type = 0;
  if (clGetMemObjectInfo(memory, CL_MEM_TYPE, sizeof type, &type, nullptr) != CL_SUCCESS) return info;
  if (type == CL_MEM_OBJECT_BUFFER) {
    if (clGetMemObjectInfo(memory, CL_MEM_SIZE, sizeof info.bytes, &info.bytes, nullptr) == CL_SUCCESS) {
      info.kind = MemoryObjectInfo::Kind::kBuffer;
    }
    return info;
  }
  // Any other type is an image; only a 2D image has what the kernels sample and write.
  info.kind = MemoryObjectInfo::Kind::kImage;
  if (type != CL_MEM_OBJECT_IMAGE2D ||
      clGetImageInfo(memory, CL_IMAGE_WIDTH, sizeof info.width, &info.width, nullptr) != CL_SUCCESS ||
      clGetImageInfo(memory, CL_IMAGE_HEIGHT, sizeof info.height, &info.height, nullptr) != CL_SUCCESS ||
      clGetImageInfo(memory, CL_IMAGE_ELEMENT_SIZE, sizeof info.elementBytes, &info.elementBytes, nullptr) !=
          CL_SUCCESS) {
    info.width = info.height = info.elementBytes = 0;
  }
  return info;
}

// Images take any pitch, so nothing on OpenCL copies rows to change one.
int OpenCLBackend::CopyRows(const void*, std::size_t, void*, std::size_t, std::size_t, std::size_t,
                            CommandQueue&) {
  return kResultFailed;
}

}  // namespace LM
