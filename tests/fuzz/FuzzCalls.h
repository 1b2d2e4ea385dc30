// Calls the library's exported functions with arguments drawn from a stream of bytes, as an editor who drags
// every slider to every value would: zero, negative and huge sizes, pitches shorter than a row, every host
// format and made-up ones, modes out of range, NaN and infinite floats, null devices, null and foreign
// frames. The same stream gives the same calls, so the bounded test (FuzzTest.cpp) and the libFuzzer target
// (FuzzTarget.cpp) share this code and any failure replays.
//
// Device buffers are OpenCL buffers over host memory (CL_MEM_USE_HOST_PTR) with guard bytes on both sides:
// a kernel that writes past its buffer writes into a guard, which Check() finds.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Lumora/Device.h"

class FuzzBytes {
 public:
  FuzzBytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  // The next n bytes as a number, little end first; zeros once the stream has run out.
  std::uint64_t Take(int n);
  bool Exhausted() const { return position_ >= size_; }
  // A number below `count`.
  std::uint32_t Below(std::uint32_t count) { return static_cast<std::uint32_t>(Take(4) % count); }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t position_ = 0;
};

class FuzzSession {
 public:
  // `device` must be a started OpenCL device; the caller holds its exclusive access.
  explicit FuzzSession(const boost::shared_ptr<LM::Device>& device);
  ~FuzzSession();
  FuzzSession(const FuzzSession&) = delete;
  FuzzSession& operator=(const FuzzSession&) = delete;

  // Makes one call chosen and parameterised by the stream; returns the name of the function called.
  const char* CallOne(FuzzBytes& input);
  // Waits for the device, then looks at every guard and at what the calls returned: empty when all is well,
  // else what went wrong (the first fault only).
  std::string Check();
  // Drops every frame and block the calls left, waits for the event polls they added, and checks that the
  // device pool is back where it started. Empty when all is well.
  std::string Finish();

  static std::size_t EntryPointCount();
  static const char* EntryPointName(std::size_t index);

  // What the calls work on and what they returned; opaque outside FuzzCalls.cpp.
  struct State;

 private:
  std::unique_ptr<State> state_;
};
