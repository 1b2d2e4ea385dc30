// The OpenCL entry points that Lumora calls, bound on first use from the OpenCL runtime library (the Linux
// form of delay-loading). Lumora does not link against libOpenCL: it defines these functions itself,
// with hidden visibility, and each one loads the runtime and looks its name up the first time it is
// called. When the runtime or the name is missing, the call fails with kOpenCLRuntimeUnavailable
// (through its errcode_ret argument where the function returns an object) instead of crashing, so the
// library loads and runs without OpenCL.
#pragma once

#include <CL/cl.h>

namespace LM {

// The ICD loader's own code for "no OpenCL platform" (CL_PLATFORM_NOT_FOUND_KHR).
constexpr cl_int kOpenCLRuntimeUnavailable = -1001;

// X(return type, name, parameter list, argument list)
// clang-format off
#define LM_OPENCL_ENTRY_POINTS_RETURNING_STATUS(X)                                                             \
  X(cl_int, clGetPlatformIDs, (cl_uint num_entries, cl_platform_id* platforms, cl_uint* num_platforms),        \
    (num_entries, platforms, num_platforms))                                                                   \
  X(cl_int, clGetPlatformInfo,                                                                                 \
    (cl_platform_id platform, cl_platform_info param_name, size_t param_value_size, void* param_value,         \
     size_t* param_value_size_ret),                                                                            \
    (platform, param_name, param_value_size, param_value, param_value_size_ret))                               \
  X(cl_int, clGetDeviceIDs,                                                                                    \
    (cl_platform_id platform, cl_device_type device_type, cl_uint num_entries, cl_device_id* devices,          \
     cl_uint* num_devices),                                                                                    \
    (platform, device_type, num_entries, devices, num_devices))                                                \
  X(cl_int, clGetDeviceInfo,                                                                                   \
    (cl_device_id device, cl_device_info param_name, size_t param_value_size, void* param_value,               \
     size_t* param_value_size_ret),                                                                            \
    (device, param_name, param_value_size, param_value, param_value_size_ret))                                 \
  X(cl_int, clReleaseContext, (cl_context context), (context))                                                 \
  X(cl_int, clReleaseCommandQueue, (cl_command_queue command_queue), (command_queue))                          \
  X(cl_int, clFinish, (cl_command_queue command_queue), (command_queue))                                       \
  X(cl_int, clReleaseMemObject, (cl_mem memobj), (memobj))                                                     \
  X(cl_int, clEnqueueReadBuffer,                                                                               \
    (cl_command_queue command_queue, cl_mem buffer, cl_bool blocking_read, size_t offset, size_t size,         \
     void* ptr, cl_uint num_events_in_wait_list, const cl_event* event_wait_list, cl_event* event),            \
    (command_queue, buffer, blocking_read, offset, size, ptr, num_events_in_wait_list, event_wait_list, event)) \
  X(cl_int, clEnqueueWriteBuffer,                                                                              \
    (cl_command_queue command_queue, cl_mem buffer, cl_bool blocking_write, size_t offset, size_t size,        \
     const void* ptr, cl_uint num_events_in_wait_list, const cl_event* event_wait_list, cl_event* event),      \
    (command_queue, buffer, blocking_write, offset, size, ptr, num_events_in_wait_list, event_wait_list,       \
     event))                                                                                                   \
  X(cl_int, clEnqueueNDRangeKernel,                                                                            \
    (cl_command_queue command_queue, cl_kernel kernel, cl_uint work_dim, const size_t* global_work_offset,     \
     const size_t* global_work_size, const size_t* local_work_size, cl_uint num_events_in_wait_list,           \
     const cl_event* event_wait_list, cl_event* event),                                                        \
    (command_queue, kernel, work_dim, global_work_offset, global_work_size, local_work_size,                   \
     num_events_in_wait_list, event_wait_list, event))                                                         \
  X(cl_int, clEnqueueMarker, (cl_command_queue command_queue, cl_event* event), (command_queue, event))        \
  X(cl_int, clEnqueueWaitForEvents,                                                                            \
    (cl_command_queue command_queue, cl_uint num_events, const cl_event* event_list),                          \
    (command_queue, num_events, event_list))                                                                   \
  X(cl_int, clWaitForEvents, (cl_uint num_events, const cl_event* event_list), (num_events, event_list))       \
  X(cl_int, clGetEventInfo,                                                                                    \
    (cl_event event, cl_event_info param_name, size_t param_value_size, void* param_value,                     \
     size_t* param_value_size_ret),                                                                            \
    (event, param_name, param_value_size, param_value, param_value_size_ret))                                  \
  X(cl_int, clGetEventProfilingInfo,                                                                           \
    (cl_event event, cl_profiling_info param_name, size_t param_value_size, void* param_value,                 \
     size_t* param_value_size_ret),                                                                            \
    (event, param_name, param_value_size, param_value, param_value_size_ret))                                  \
  X(cl_int, clReleaseEvent, (cl_event event), (event))                                                         \
  X(cl_int, clBuildProgram,                                                                                    \
    (cl_program program, cl_uint num_devices, const cl_device_id* device_list, const char* options,            \
     void(CL_CALLBACK * pfn_notify)(cl_program program, void* user_data), void* user_data),                    \
    (program, num_devices, device_list, options, pfn_notify, user_data))                                       \
  X(cl_int, clReleaseProgram, (cl_program program), (program))                                                \
  X(cl_int, clUnloadCompiler, (void), ())                                                                      \
  X(cl_int, clSetKernelArg, (cl_kernel kernel, cl_uint arg_index, size_t arg_size, const void* arg_value),     \
    (kernel, arg_index, arg_size, arg_value))                                                                  \
  X(cl_int, clGetMemObjectInfo,                                                                                \
    (cl_mem memobj, cl_mem_info param_name, size_t param_value_size, void* param_value,                        \
     size_t* param_value_size_ret),                                                                            \
    (memobj, param_name, param_value_size, param_value, param_value_size_ret))                                 \
  X(cl_int, clGetImageInfo,                                                                                    \
    (cl_mem image, cl_image_info param_name, size_t param_value_size, void* param_value,                       \
     size_t* param_value_size_ret),                                                                            \
    (image, param_name, param_value_size, param_value, param_value_size_ret))                                  \
  X(cl_int, clReleaseKernel, (cl_kernel kernel), (kernel))
// clang-format on

// Entry points that return an object and report their status through errcode_ret.
// clang-format off
#define LM_OPENCL_ENTRY_POINTS_RETURNING_OBJECT(X)                                                             \
  X(cl_context, clCreateContext,                                                                               \
    (const cl_context_properties* properties, cl_uint num_devices, const cl_device_id* devices,                \
     void(CL_CALLBACK * pfn_notify)(const char* errinfo, const void* private_info, size_t cb, void* user_data), \
     void* user_data, cl_int* errcode_ret),                                                                    \
    (properties, num_devices, devices, pfn_notify, user_data, errcode_ret))                                    \
  X(cl_command_queue, clCreateCommandQueue,                                                                    \
    (cl_context context, cl_device_id device, cl_command_queue_properties properties, cl_int* errcode_ret),    \
    (context, device, properties, errcode_ret))                                                                \
  X(cl_mem, clCreateBuffer,                                                                                    \
    (cl_context context, cl_mem_flags flags, size_t size, void* host_ptr, cl_int* errcode_ret),                \
    (context, flags, size, host_ptr, errcode_ret))                                                             \
  X(cl_mem, clCreateImage2D,                                                                                   \
    (cl_context context, cl_mem_flags flags, const cl_image_format* image_format, size_t image_width,          \
     size_t image_height, size_t image_row_pitch, void* host_ptr, cl_int* errcode_ret),                        \
    (context, flags, image_format, image_width, image_height, image_row_pitch, host_ptr, errcode_ret))         \
  X(cl_program, clCreateProgramWithSource,                                                                     \
    (cl_context context, cl_uint count, const char** strings, const size_t* lengths, cl_int* errcode_ret),     \
    (context, count, strings, lengths, errcode_ret))                                                           \
  X(cl_kernel, clCreateKernel, (cl_program program, const char* kernel_name, cl_int* errcode_ret),             \
    (program, kernel_name, errcode_ret))
// clang-format on

// Whether the OpenCL runtime library could be loaded (loads it on the first call).
bool IsOpenCLRuntimeLoaded();

}  // namespace LM
