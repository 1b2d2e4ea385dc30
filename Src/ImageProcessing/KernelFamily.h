// The operation frame: the one shape every image operation has, carried by kernel families. A family is one
// parameter list and one list of variants (KernelLists.h) in one module; a single kernel is a family of one.
// Its object picks the variant by index at run time and keeps a cache slot array per variant; it owns the
// launch geometry, the result for a missing kernel, an optional preparation before each launch, and the
// frameworks it exists on. A launch finds the kernel through its cache, marshals the arguments through the
// device's backend, and launches on the device's queue, returning a result code and, when asked, the
// launch's completion event. Nothing here allocates in steady state.
//
//   LM_KERNEL_PARAMETERS(FillWithColorParameters, LM_PARAMETERS_FillWithColorKernel);
//   inline KernelFamily<FillWithColorParameters, 1> fillWithColorKernel(
//       "..\\..\\Src\\ImageProcessing\\Fills", {"FillWithColorKernel"});
//   ... fillWithColorKernel.Run(device, width, height, {PixelOperand(buffer, ...)}, DevicePointer{buffer},
//                                pitch, ...);
#pragma once

#include <array>
#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "Devices/DeviceBackend.h"
#include "ImageProcessing/Kernels/KernelLists.h"
#include "Lumora/Device.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Results.h"
#include "Lumora/Textures.h"

namespace LM {

// Kernel argument types besides int, float and float4.
struct DevicePointer {
  const void* value;  // a CUDA device address or an OpenCL buffer (cl_mem)
};
struct ImageObject {
  void* value;  // an OpenCL image (cl_mem); the CUDA form of a kernel samples a texture reference instead
};

template <class... T>
struct TypeList {};

// One parameter as a list declares it: what the host passes, its name, and the type the OpenCL runtime
// reports for it (clGetKernelArgInfo), for the kernel check.
struct KernelParameter {
  KernelParameterKind kind;
  const char* name;
  const char* openCLType;
};

// The frameworks a family's kernels exist on, as declared: the kernel check holds each module to it.
enum class KernelFrameworks : std::uint8_t { kBoth, kOpenCLOnly };

struct LaunchGeometry {
  int gridWidth, gridHeight;  // in blocks
  int blockWidth, blockHeight;
};
using GeometryRule = LaunchGeometry (*)(const Device& device, int width, int height);

// ceil(width / 16) x ceil(height / 16) blocks of 16 x 16 threads, one thread a pixel. An extent that is not
// positive gives an empty grid, which the queue refuses.
LaunchGeometry Blocks16x16(const Device& device, int width, int height);
// One row of blocks, 32 threads wide on devices of compute capability 2.0 and up (OpenCL devices report
// their OpenCL version there), else 16, over `width` rounded up to a multiple of 16; the height is ignored.
LaunchGeometry RowOfBlocks32Or16(const Device& device, int width, int height);

// What a launch reads or writes through one buffer or image argument. The frame checks every operand
// before anything is enqueued (CheckOperands): a launch whose operands are not whole and inside their
// objects is refused.
struct Operand {
  enum class Kind : std::uint8_t { kBuffer, kImage };
  const void* object;  // the argument: a device address or cl_mem, or an OpenCL image
  Kind kind;
  int elementBytes;  // bytes of one element; 0 when the operation refuses the pixel format
  int indexBytes;    // the unit in which the kernel indexes the buffer: its last index must fit an int
  long long offset;  // bytes from the object's address to row 0
  long long pitch;   // bytes from one row to the next, as the kernel steps
  long long left, top, width, height;  // the rectangle, in elements
};

// A width x height rectangle at (left, top) of a buffer whose rows are `rowBytes` apart, counted as the
// kernels count them: in whole elements, a remainder dropped. Row 0 starts `offset` bytes in. The kernel
// indexes the buffer in elements.
Operand PixelOperand(const void* buffer, long long rowBytes, int elementBytes, long long left, long long top,
                     long long width, long long height, long long offset = 0);
// The width x height texels of an OpenCL image whose texels take `elementBytes`.
Operand ImageOperand(const void* image, int elementBytes, long long width, long long height);
// A buffer's row pitch as the kernels take it, in elements; 0 for a refused format.
inline int PitchInElements(int rowBytes, int elementBytes) {
  return elementBytes > 0 ? rowBytes / elementBytes : 0;
}

// The checks of the frame, in their order, each failing with kResultFailed unless told otherwise: a null
// object; a refused format (`refusedFormatResult`); a negative position or offset, a pitch shorter than
// the rows it holds, or an index beyond an int; and then, as far as the framework can tell, an object of
// the wrong kind (an image for a buffer or the reverse) or an extent past the end of its object. An
// operand of an empty extent touches nothing and gets only the first two checks.
int CheckOperands(Device& device, const Operand* operands, std::size_t count, int refusedFormatResult);
using Operands = std::initializer_list<Operand>;

struct KernelFamilyOptions {
  KernelFrameworks frameworks = KernelFrameworks::kBoth;
  int missingKernelResult = kResultFailed;
  // What a launch whose operand has a refused format returns.
  int refusedFormatResult = kResultUnsupported;
  GeometryRule geometry = Blocks16x16;
  // Asks for more shared memory than L1 cache (cuFuncSetCacheConfig) before each launch, on devices of
  // compute capability 2.0 and up.
  bool preferSharedMemory = false;

 private:
  // Defined before the setters that use it, so that they are constant expressions wherever they are called.
  template <class T>
  constexpr KernelFamilyOptions With(T KernelFamilyOptions::*field, T value) const {
    KernelFamilyOptions options = *this;
    options.*field = value;
    return options;
  }

 public:
  constexpr KernelFamilyOptions OpenCLOnly() const {
    return With(&KernelFamilyOptions::frameworks, KernelFrameworks::kOpenCLOnly);
  }
  constexpr KernelFamilyOptions MissingKernelResult(int result) const {
    return With(&KernelFamilyOptions::missingKernelResult, result);
  }
  constexpr KernelFamilyOptions RefusedFormatResult(int result) const {
    return With(&KernelFamilyOptions::refusedFormatResult, result);
  }
  constexpr KernelFamilyOptions Geometry(GeometryRule rule) const {
    return With(&KernelFamilyOptions::geometry, rule);
  }
  constexpr KernelFamilyOptions PreferSharedMemory() const {
    return With(&KernelFamilyOptions::preferSharedMemory, true);
  }
};

// One kernel as the kernel check sees it.
struct KernelSignature {
  const char* module;  // the module's name ("Fills")
  const char* name;    // the kernel's name ("FillWithColorKernel")
  const KernelParameter* parameters;
  std::size_t count;
  KernelFrameworks frameworks;
};

// The kernel handle of one kernel per device slot (framework × the devices per framework + the device's
// index in its framework), with the context identity it was obtained for. The identity is stored before
// the lookup, so a kernel that cannot be had stays null until the device's context is made again; then it
// is looked up anew.
class KernelCache {
 public:
  void* Find(Device& device, const char* moduleKey, const char* kernelName);

 private:
  struct Slot {
    std::uint64_t identity = 0;
    void* handle = nullptr;
  };
  Slot slots_[2 * kMaximumDevicesPerFramework];
};

// One texture reference of a module per device slot, prepared once per context (LoadTexture) and handed
// out by copy for the caller to bind for one launch, so that an OpenCL image made by the bind goes with the
// copy.
class TextureCache {
 public:
  constexpr TextureCache(const char* moduleKey, const char* name) : moduleKey_(moduleKey), name_(name) {}
  // Clamped addressing, point sampling, texels of `format`.
  Texture Find(const boost::shared_ptr<Device>& device, PixelFormat format);

 private:
  struct Slot {
    std::uint64_t identity = 0;
    Texture texture;
  };
  const char* moduleKey_;
  const char* name_;
  Slot slots_[2 * kMaximumDevicesPerFramework];
};

namespace detail {

inline KernelArgument Argument(const DevicePointer& value) {
  KernelArgument argument{KernelParameterKind::kDevicePointer, {}};
  argument.pointer = value.value;
  return argument;
}
inline KernelArgument Argument(const ImageObject& value) {
  KernelArgument argument{KernelParameterKind::kImage, {}};
  argument.pointer = value.value;
  return argument;
}
inline KernelArgument Argument(int value) {
  KernelArgument argument{KernelParameterKind::kInt, {}};
  argument.integer = value;
  return argument;
}
inline KernelArgument Argument(float value) {
  KernelArgument argument{KernelParameterKind::kFloat, {}};
  argument.real = value;
  return argument;
}
inline KernelArgument Argument(const float4& value) {
  KernelArgument argument{KernelParameterKind::kFloat4, {}};
  argument.vector[0] = value.x;
  argument.vector[1] = value.y;
  argument.vector[2] = value.z;
  argument.vector[3] = value.w;
  return argument;
}

// Every step of an operation after its extent check: the operand checks, the kernel, the arguments, the
// launch.
int Launch(const boost::shared_ptr<Device>& device, KernelCache& cache, const char* moduleKey,
           const char* name, const KernelFamilyOptions& options, int width, int height,
           boost::shared_ptr<Event>* done, const Operands& operands, const KernelArgument* arguments,
           std::size_t count);

// The module's name in its key: what follows the last separator.
constexpr const char* ModuleNameOfKey(const char* key) {
  const char* name = key;
  for (const char* c = key; *c != '\0'; ++c) {
    if (*c == '\\' || *c == '/') name = c + 1;
  }
  return name;
}

}  // namespace detail

template <class Parameters, std::size_t Variants, class Types = typename Parameters::Types>
class KernelFamily;

template <class Parameters, std::size_t Variants, class... Ts>
class KernelFamily<Parameters, Variants, TypeList<Ts...>> {
 public:
  static_assert(sizeof...(Ts) == sizeof Parameters::kList / sizeof Parameters::kList[0]);

  constexpr KernelFamily(const char* moduleKey, const std::array<const char*, Variants>& names,
                         const KernelFamilyOptions& options = {})
      : moduleKey_(moduleKey), names_(names), options_(options) {}

  // Launches variant `variant` over a width x height extent (as the family's geometry counts it) with the
  // arguments in the list's order, once `operands` (what the kernel reads and writes of its buffers and
  // images) pass the frame's checks; `done`, when given, receives the launch's completion event. A
  // variant out of range is a missing kernel.
  int Launch(const boost::shared_ptr<Device>& device, std::size_t variant, int width, int height,
             boost::shared_ptr<Event>* done, const Operands& operands, const Ts&... arguments) {
    if (variant >= Variants) return options_.missingKernelResult;
    const KernelArgument list[] = {detail::Argument(arguments)...};
    return detail::Launch(device, caches_[variant], moduleKey_, names_[variant], options_, width, height,
                          done, operands, list, sizeof...(Ts));
  }
  // The first variant, without a completion event: the launch of a single kernel.
  int Run(const boost::shared_ptr<Device>& device, int width, int height, const Operands& operands,
          const Ts&... arguments) {
    return Launch(device, 0, width, height, nullptr, operands, arguments...);
  }
  // The kernel handle of a variant for the device (null when it cannot be had), for operations that only
  // check.
  void* Find(Device& device, std::size_t variant) {
    return variant < Variants ? caches_[variant].Find(device, moduleKey_, names_[variant]) : nullptr;
  }

  constexpr std::size_t VariantCount() const { return Variants; }
  KernelSignature Signature(std::size_t variant) const {
    return KernelSignature{detail::ModuleNameOfKey(moduleKey_), names_[variant], Parameters::kList,
                           sizeof...(Ts), options_.frameworks};
  }

 private:
  const char* moduleKey_;
  std::array<const char*, Variants> names_;
  KernelFamilyOptions options_;
  std::array<KernelCache, Variants> caches_{};
};

// Appends the signature of every variant of each family, for the kernel check.
template <class... Families>
void AppendSignatures(std::vector<KernelSignature>& signatures, const Families&... families) {
  const auto append = [&signatures](const auto& family) {
    for (std::size_t variant = 0; variant < family.VariantCount(); ++variant) {
      signatures.push_back(family.Signature(variant));
    }
  };
  (append(families), ...);
}

// Every kernel the library launches, for the kernel check.
std::vector<KernelSignature> KernelCatalog();

}  // namespace LM

// The host side of a parameter list: Name::Types are the argument types of a launch, Name::kList the
// parameters with their kinds and names.
#define LM_KERNEL_PARAMETERS(Name, LIST)                                        \
  struct Name {                                                                 \
    using Types = ::LM::TypeList<LM_REST(LIST(LM_HOST_PARAMETER_TYPE))>;        \
    static constexpr ::LM::KernelParameter kList[] = {LIST(LM_HOST_PARAMETER)}; \
  }

// The number of variants of a family, and their kernel names in list order.
#define LM_VARIANT_COUNT(FAMILY) (0 LM_VARIANTS_##FAMILY(LM_COUNT_VARIANT, FAMILY))
#define LM_VARIANT_NAMES(FAMILY) \
  { LM_VARIANTS_##FAMILY(LM_VARIANT_NAME, FAMILY) }

#define LM_COUNT_VARIANT(FAMILY, variant) +1
#define LM_VARIANT_NAME(FAMILY, variant) LM_STRINGIFY(LM_NAME_##FAMILY(variant)),

#define LM_HOST_PARAMETER_TYPE(kind, name) , LM_HOST_TYPE_##kind
#define LM_HOST_PARAMETER(kind, name) \
  ::LM::KernelParameter{::LM::KernelParameterKind::LM_HOST_KIND_##kind, #name, LM_OPENCL_TYPE_##kind},

#define LM_HOST_TYPE_BUFFER ::LM::DevicePointer
#define LM_HOST_TYPE_IN_BUFFER ::LM::DevicePointer
#define LM_HOST_TYPE_IN_BYTES ::LM::DevicePointer
#define LM_HOST_TYPE_BYTES ::LM::DevicePointer
#define LM_HOST_TYPE_INT int
#define LM_HOST_TYPE_FLOAT float
#define LM_HOST_TYPE_FLOAT4 ::LM::float4
#define LM_HOST_TYPE_TEXTURE ::LM::ImageObject
#define LM_HOST_TYPE_IMAGE_OUT ::LM::ImageObject

#define LM_HOST_KIND_BUFFER kDevicePointer
#define LM_HOST_KIND_IN_BUFFER kDevicePointer
#define LM_HOST_KIND_IN_BYTES kDevicePointer
#define LM_HOST_KIND_BYTES kDevicePointer
#define LM_HOST_KIND_INT kInt
#define LM_HOST_KIND_FLOAT kFloat
#define LM_HOST_KIND_FLOAT4 kFloat4
#define LM_HOST_KIND_TEXTURE kImage
#define LM_HOST_KIND_IMAGE_OUT kImage

#define LM_OPENCL_TYPE_BUFFER "float*"
#define LM_OPENCL_TYPE_IN_BUFFER "float*"
#define LM_OPENCL_TYPE_IN_BYTES "uchar*"
#define LM_OPENCL_TYPE_BYTES "uchar*"
#define LM_OPENCL_TYPE_INT "int"
#define LM_OPENCL_TYPE_FLOAT "float"
#define LM_OPENCL_TYPE_FLOAT4 "float4"
#define LM_OPENCL_TYPE_TEXTURE "image2d_t"
#define LM_OPENCL_TYPE_IMAGE_OUT "image2d_t"
