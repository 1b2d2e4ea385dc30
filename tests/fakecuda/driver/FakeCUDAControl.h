// The control library of the fake CUDA driver, for the tests and the benchmarks. The driver is a shared
// library that exports the driver's entry points, reports configurable devices, hands out host memory as
// device memory, loads PTX text and knows the kernels and textures it declares, records every call with its
// arguments, fails any entry point on demand (by name, or the Nth call of any name: fakecuda_SetFailureAt,
// counted from the moment it is set), and counts what is alive.
//
// Tests point the library at a fake driver file through LM::CUDADriverLibraryName and reach the same
// loaded instance through FakeCUDA, which resolves the control functions below from that file. Variants of
// the file lack chosen entry points (see CMakeLists.txt): FAKECUDA_PATH (complete),
// FAKECUDA_NO_DRIVER_VERSION_PATH, FAKECUDA_DRIVER_3020_PATH, FAKECUDA_NO_LAUNCH_KERNEL_PATH.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

extern "C" {

// One recorded kernel launch (cuLaunchGridAsync, the launch the library makes).
struct FakeCUDALaunch {
  const char* function;  // the kernel's name as its module declares it
  unsigned gridX, gridY;
  unsigned blockX, blockY, blockZ;
  void* stream;
  unsigned paramSize;          // as set by cuParamSetSize
  unsigned char params[4096];  // the parameter bytes set with cuParamSet*
};

// The last binding of a texture (cuTexRefSetAddress2D).
struct FakeCUDATextureBinding {
  unsigned long long width, height, address, pitch;
  int format;
  unsigned channels;
};

}  // extern "C"

// X(return type, name, parameter list)
// clang-format off
#define FAKECUDA_CONTROL_FUNCTIONS(X)                                                                 \
  X(void, fakecuda_SetDriverVersion, (int version))                                                   \
  X(void, fakecuda_ClearDevices, (void))                                                              \
  X(int, fakecuda_AddDevice, (const char* name, int major, int minor, unsigned long long totalMemory)) \
  X(void, fakecuda_SetFailure, (const char* name, int result, int skip, int count))                   \
  X(void, fakecuda_ClearFailures, (void))                                                             \
  X(void, fakecuda_SetFailureAt, (unsigned long long index, int result))                              \
  X(unsigned long long, fakecuda_CallsMade, (void))                                                   \
  X(unsigned long long, fakecuda_CallCount, (const char* name))                                       \
  X(unsigned long long, fakecuda_CallLogSize, (void))                                                 \
  X(const char*, fakecuda_CallName, (unsigned long long index))                                       \
  X(int, fakecuda_CallArgs, (unsigned long long index, unsigned long long* words, int capacity))      \
  X(void, fakecuda_ClearCallLog, (void))                                                              \
  X(void, fakecuda_SetEventsComplete, (int complete))                                                 \
  X(void, fakecuda_SetEventComplete, (void* event, int complete))                                     \
  X(void, fakecuda_SetMemoryLimit, (unsigned long long bytes))                                        \
  X(unsigned long long, fakecuda_LiveDeviceAllocations, (void))                                       \
  X(unsigned long long, fakecuda_LiveHostAllocations, (void))                                         \
  X(unsigned long long, fakecuda_LiveEvents, (void))                                                  \
  X(unsigned long long, fakecuda_LaunchCount, (void))                                                 \
  X(int, fakecuda_GetLaunch, (unsigned long long index, FakeCUDALaunch* launch))                      \
  X(int, fakecuda_CurrentContextDepth, (void))                                                        \
  X(int, fakecuda_TotalContextDepth, (void))                                                          \
  X(unsigned long long, fakecuda_LiveContexts, (void))                                                \
  X(unsigned long long, fakecuda_LiveModules, (void))                                                 \
  X(unsigned long long, fakecuda_LiveStreams, (void))                                                 \
  X(void, fakecuda_SetRecording, (int recording))                                                     \
  X(int, fakecuda_TextureBinding, (const char* name, FakeCUDATextureBinding* binding))
// clang-format on

// Failure counts for fakecuda_SetFailure.
constexpr int kFakeCUDAFailForever = -1;

// The control functions of one fake driver file, resolved from the instance the library loads.
class FakeCUDA {
 public:
  // Loads the driver file (it stays loaded for the life of the process, as the library keeps a driver it
  // has loaded) and resolves the control functions; throws std::runtime_error when either fails.
  explicit FakeCUDA(const std::string& path);
  FakeCUDA(const FakeCUDA&) = delete;
  FakeCUDA& operator=(const FakeCUDA&) = delete;

  const std::string& Path() const { return path_; }
  // The address of an exported entry point, or null: what the binder should have stored in a slot.
  void* Symbol(const char* name) const;

  // Every recorded call's exported name, in order.
  std::vector<std::string> CallNames() const;
  // The arguments of call `index` as 64-bit words (pointers and integers as they are, floats by their bits).
  std::vector<unsigned long long> CallArgs(unsigned long long index) const;
  // The arguments of each recorded call of the exported name `name`, in order.
  std::vector<std::vector<unsigned long long>> ArgsOf(const std::string& name) const;
  std::vector<FakeCUDALaunch> Launches() const;
  // The last binding of texture `name` (of any texture for null); all zero when there is none.
  FakeCUDATextureBinding TextureBinding(const char* name = nullptr) const;

#define FAKECUDA_DECLARE(Result, name, params) Result(*name) params = nullptr;
  FAKECUDA_CONTROL_FUNCTIONS(FAKECUDA_DECLARE)
#undef FAKECUDA_DECLARE

 private:
  std::string path_;
  void* handle_;
};
