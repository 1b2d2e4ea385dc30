#include "FakeCUDAControl.h"

#include <dlfcn.h>

#include <stdexcept>

FakeCUDA::FakeCUDA(const std::string& path)
    : path_(path), handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
  if (handle_ == nullptr) throw std::runtime_error("cannot load the fake CUDA driver " + path);
#define FAKECUDA_RESOLVE(Result, name, params)                      \
  name = reinterpret_cast<Result(*) params>(dlsym(handle_, #name)); \
  if (name == nullptr) throw std::runtime_error("fake driver lacks " #name);
  FAKECUDA_CONTROL_FUNCTIONS(FAKECUDA_RESOLVE)
#undef FAKECUDA_RESOLVE
}

void* FakeCUDA::Symbol(const char* name) const {
  return dlsym(handle_, name);
}

std::vector<std::string> FakeCUDA::CallNames() const {
  std::vector<std::string> names;
  for (unsigned long long i = 0, n = fakecuda_CallLogSize(); i < n; ++i)
    names.emplace_back(fakecuda_CallName(i));
  return names;
}

std::vector<unsigned long long> FakeCUDA::CallArgs(unsigned long long index) const {
  unsigned long long words[16];
  const int count = fakecuda_CallArgs(index, words, 16);
  return std::vector<unsigned long long>(words, words + (count > 0 ? count : 0));
}

std::vector<std::vector<unsigned long long>> FakeCUDA::ArgsOf(const std::string& name) const {
  std::vector<std::vector<unsigned long long>> calls;
  for (unsigned long long i = 0, n = fakecuda_CallLogSize(); i < n; ++i) {
    if (name == fakecuda_CallName(i)) calls.push_back(CallArgs(i));
  }
  return calls;
}

std::vector<FakeCUDALaunch> FakeCUDA::Launches() const {
  std::vector<FakeCUDALaunch> launches(fakecuda_LaunchCount());
  for (std::size_t i = 0; i < launches.size(); ++i) fakecuda_GetLaunch(i, &launches[i]);
  return launches;
}

FakeCUDATextureBinding FakeCUDA::TextureBinding(const char* name) const {
  FakeCUDATextureBinding binding = {};
  fakecuda_TextureBinding(name, &binding);
  return binding;
}
