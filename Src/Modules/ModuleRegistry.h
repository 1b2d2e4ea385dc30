// The module registry: the process-wide tables of kernel module images. A device's backend loads the images
// into its context (Devices/DeviceBackend.h).
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

// Where the table for (framework, compute capability) takes its modules from, for messages: the CUDA
// folder's path, or the OpenCL texts that programs registered.
std::string ModuleSearchPlace(DeviceFramework framework, double computeCapability);

// Whether the table for (framework, compute capability) is built; never builds it.
bool IsModuleTableBuilt(DeviceFramework framework, double computeCapability);

}  // namespace LM
