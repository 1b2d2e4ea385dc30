// The module registry: the process-wide tables of kernel module images, and the loading of a module into
// a device's context.
//
// Eight tables, one per framework and capability class: table index = framework × 4 + slot, where a CUDA
// device of compute capability cc uses slot min(floor(cc), 4) − 1 (1.x → 0, 2.x → 1, 3.x → 2, 4.0 and
// above → 3) and OpenCL always uses slot 0. A table maps module names to images and is built on first
// need, under the registry's lock:
//   - CUDA: the files of one folder in the executable directory: "PTX", or "cubin11", "cubin20",
//     "cubin30" for devices too old for the code in the folder below them (see ModuleRegistry.cpp). A
//     module is named after its file's title with the vendor suffix ("_NVIDIA") removed.
//   - OpenCL: the texts registered through LM::OpenCLModuleLoader, named by their "// module: " line.
// A table stays built for the life of the process; only a later OpenCL registration resets the OpenCL
// table. A capability below 1.0 (or not a number) and an unknown framework have no table: no records,
// no image, no module.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Lumora/DeviceTypes.h"
#include "Runtime/CUDADriverAPI.h"

namespace LM {

// One module that a table offers. A device keeps a copy of its table's records, refreshed after each
// release of exclusive access, so it can tell which modules it could load without taking the registry's
// lock or loading anything.
struct KernelRecord {
  std::string moduleName;
  // Bytes of the module's image; 0 when its file was empty or unreadable, so loading it gives null.
  std::size_t imageSize = 0;
};

// The records of the table for (framework, compute capability), one per module in name order, building
// the table first when needed. The vendor names the suffix removed from CUDA file titles. Empty when there
// is no such table.
std::vector<KernelRecord> GetKernelRecords(DeviceFramework framework, Vendor vendor,
                                           double computeCapability);

// The image of module `name` in the table for (framework, compute capability), building the table first
// when needed. False (and `image` untouched) when the table has no such module.
bool LookUpModuleImage(DeviceFramework framework, Vendor vendor, double computeCapability,
                       const std::string& name, std::string& image);

// Whether the table for (framework, compute capability) is built; never builds it.
bool IsModuleTableBuilt(DeviceFramework framework, double computeCapability);

// Loads module `name` into a device's context: a CUmodule for CUDA (the context must be current on the
// calling thread; `context` and `device` are not used), a cl_program built for `device` in `context` for
// OpenCL. Null when the name is absent or its image is empty (without a message), or when loading fails.
// The caller owns the module and releases it with UnloadModule.
void* LoadModule(DeviceFramework framework, void* context, void* device, Vendor vendor,
                 double computeCapability, const std::string& name);

// Loads one image: OpenCL compiles the text for `device` with "-cl-single-precision-constant
// -cl-fast-relaxed-math" (a compile or build failure is null without a message); CUDA calls
// LoadCUDAModule. Every exception is caught and gives null.
void* LoadModuleGuarded(DeviceFramework framework, void* context, void* device, const std::string& name,
                        const std::string& image);

// The just-in-time option passed with every CUDA module, and its value: the highest optimisation level.
constexpr CUjit_option kModuleJITOption = CU_JIT_OPTIMIZATION_LEVEL;
constexpr unsigned int kModuleJITOptimizationLevel = 4;

// Loads a CUDA image (PTX text or cubin) into the current context with cuModuleLoadDataEx and the option
// above. On failure reports "Failed to load module: <name>, error: <result name>" (unless module load
// failures are silenced) and returns null.
CUmodule LoadCUDAModule(const std::string& name, const std::string& image);

// Silences (or restores) the report of LoadCUDAModule failures, library-wide. Off at start.
void SetModuleLoadFailuresSilenced(bool silenced);

// Releases a module from LoadModule: cuModuleUnload or clReleaseProgram, with the result checked. A null
// module is ignored.
void UnloadModule(DeviceFramework framework, void* module);

}  // namespace LM
